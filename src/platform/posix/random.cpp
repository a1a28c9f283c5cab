#include "platform/random.hpp"

#include <sys/random.h>

#include <cerrno>

#include "platform/os_error.hpp"

namespace platform {

std::uint64_t random_u64() {
    std::uint64_t value = 0;
    for (;;) {
        const ssize_t n = ::getrandom(&value, sizeof value, 0);
        if (n == static_cast<ssize_t>(sizeof value)) return value;
        if (n < 0 && errno != EINTR) throw OsError("cannot read random bytes", errno);
    }
}

}  // namespace platform
