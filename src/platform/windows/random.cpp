#define _CRT_RAND_S  // rand_s, the C runtime's way to the system's random source
#include "platform/random.hpp"

#include <stdlib.h>

#include "platform/os_error.hpp"

namespace platform {

std::uint64_t random_u64() {
    unsigned int high = 0;
    unsigned int low = 0;
    if (rand_s(&high) != 0 || rand_s(&low) != 0) {
        throw OsError("cannot read random bytes", 0x80090020 /* NTE_FAIL */);
    }
    return (static_cast<std::uint64_t>(high) << 32) | low;
}

}  // namespace platform
