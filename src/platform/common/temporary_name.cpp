#include "platform/common/temporary_name.hpp"

#include <charconv>
#include <system_error>

namespace platform::temporary_name {

std::string make(std::string_view file, unsigned long pid, unsigned long nonce, int attempt) {
    return std::string(file) + std::string(kInfix) + std::to_string(pid) + "." +
           std::to_string(nonce) + "." + std::to_string(attempt);
}

long pid_of(std::string_view rest) {
    long pid = -1;
    for (int n = 0; n < 3; ++n) {
        unsigned long long value = 0;
        const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), value);
        if (error != std::errc()) return -1;
        rest.remove_prefix(static_cast<std::size_t>(end - rest.data()));
        if (n == 0) pid = value > 0x7fffffff ? -1 : static_cast<long>(value);
        if (n < 2) {
            if (!rest.starts_with('.')) return -1;
            rest.remove_prefix(1);
        }
    }
    return rest.empty() ? pid : -1;
}

}  // namespace platform::temporary_name
