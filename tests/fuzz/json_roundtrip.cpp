// Hook input bytes: whatever the reader accepts, the writer writes back as text that reads back to
// the same value, and writing that value again gives the same text.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "support/json.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    support::Json value;
    try {
        value = support::parse_json(bytes);
    } catch (const support::JsonParseError&) {
        return 0;
    } catch (const support::JsonDepthError&) {
        return 0;
    }
    const std::string text = support::to_json_text(value);
    const support::Json again = support::parse_json(text);
    if (!(again == value) || support::to_json_text(again) != text) std::abort();
    return 0;
}
