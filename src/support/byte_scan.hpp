#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

// Scans of long texts eight bytes at a time: hook inputs and tool results run to tens of
// thousands of bytes, mostly plain ASCII, and a byte-by-byte loop was most of the cost of
// passing one on.
namespace support::byte_scan {

inline constexpr std::uint64_t kOnes = 0x0101010101010101ULL;
inline constexpr std::uint64_t kHighs = 0x8080808080808080ULL;

// The high bit of the bytes of `x` that are below `n` (n <= 0x80). The lowest flagged byte is
// exact; flags above it may be spurious.
constexpr std::uint64_t below(std::uint64_t x, unsigned n) {
    return (x - kOnes * n) & ~x & kHighs;
}

// The high bit of the bytes of `x` equal to `c`, with the same exactness.
constexpr std::uint64_t equal(std::uint64_t x, unsigned char c) {
    return below(x ^ (kOnes * c), 1);
}

// The first byte from `p` on that is not printable ASCII (0x20 to 0x7E, or to 0x7F when
// `delete_is_plain`) or that is the quote or the backslash; `end` when there is none.
inline const char* end_of_plain_ascii(const char* p, const char* end, bool delete_is_plain) {
    if constexpr (std::endian::native == std::endian::little) {
        while (end - p >= 8) {
            std::uint64_t x;
            std::memcpy(&x, p, 8);
            std::uint64_t special = below(x, 0x20) | (x & kHighs) | equal(x, '"') | equal(x, '\\');
            if (!delete_is_plain) special |= equal(x, 0x7F);
            if (special != 0) return p + (std::countr_zero(special) >> 3);
            p += 8;
        }
    }
    for (; p != end; ++p) {
        const auto c = static_cast<unsigned char>(*p);
        if (c < 0x20 || c > 0x7F || c == '"' || c == '\\' || (c == 0x7F && !delete_is_plain)) {
            return p;
        }
    }
    return end;
}

// The number of UTF-8 continuation bytes (10xxxxxx) in the eight bytes at `p`.
inline int continuation_bytes(const char* p) {
    std::uint64_t x;
    std::memcpy(&x, p, 8);
    // One flag per byte at its top bit; the multiplication adds the eight flags up in the top
    // byte (a popcount instruction cannot be assumed on x86-64).
    return static_cast<int>((((x & ~(x << 1) & kHighs) >> 7) * kOnes) >> 56);
}

}  // namespace support::byte_scan
