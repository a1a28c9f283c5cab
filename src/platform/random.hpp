#pragma once

#include <cstdint>

namespace platform {

// 64 bits from the operating system's random source. Throws OsError when it cannot be read.
std::uint64_t random_u64();

}  // namespace platform
