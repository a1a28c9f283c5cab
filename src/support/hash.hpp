#pragma once

#include <cstdint>
#include <string_view>

namespace support {

// 64-bit FNV-1a, fed in pieces: tells a changed file from an unchanged one (not a cryptographic
// hash; nothing here needs to resist a forger).
class ContentHash {
  public:
    void update(std::string_view bytes) {
        for (const unsigned char c : bytes) {
            state_ ^= c;
            state_ *= 0x100000001b3ULL;
        }
    }
    std::uint64_t value() const { return state_; }

  private:
    std::uint64_t state_ = 0xcbf29ce484222325ULL;
};

}  // namespace support
