#pragma once

#include <string_view>

struct pcre2_real_code_8;

namespace support {

// A PCRE2 pattern in UTF and Unicode-property mode (so \w is Unicode-aware and "$" also matches
// before one final line feed), compiled on its first match rather than at start-up. Declare
// instances constinit: construction does no work and nothing is freed at exit.
class Regex {
  public:
    constexpr explicit Regex(const char* pattern) : pattern_(pattern) {}

    // Whether the pattern matches `subject` starting at its first character.
    bool match(std::string_view subject);

  private:
    const char* pattern_;
    pcre2_real_code_8* code_ = nullptr;
};

}  // namespace support
