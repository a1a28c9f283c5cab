#include "support/regex.hpp"

#include <pcre2.h>

#include <stdexcept>
#include <string>

namespace support {

bool Regex::match(std::string_view subject) {
    if (code_ == nullptr) {
        int error = 0;
        PCRE2_SIZE offset = 0;
        code_ = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern_), PCRE2_ZERO_TERMINATED,
                              PCRE2_UTF | PCRE2_UCP, &error, &offset, nullptr);
        if (code_ == nullptr) {
            PCRE2_UCHAR message[256];
            pcre2_get_error_message(error, message, sizeof message);
            throw std::runtime_error(std::string("bad pattern ") + pattern_ + ": " +
                                     reinterpret_cast<const char*>(message));
        }
    }
    pcre2_match_data* data = pcre2_match_data_create_from_pattern(code_, nullptr);
    if (data == nullptr) throw std::bad_alloc();
    const int rc = pcre2_match(code_, reinterpret_cast<PCRE2_SPTR>(subject.data()), subject.size(),
                               0, PCRE2_ANCHORED, data, nullptr);
    pcre2_match_data_free(data);
    // Below -1 is an error such as a subject that is not UTF-8: no match either way.
    return rc >= 0;
}

}  // namespace support
