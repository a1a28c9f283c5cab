#include "engines/store/listing.hpp"

#include <bit>
#include <cstring>

namespace store {

namespace {

// Layout: a format byte, the rank, whether a file is recorded, stored_at, size, mtime, hash
// (64 bits each, little-endian), then the target's bytes.
constexpr unsigned char kFormat = 1;
constexpr std::size_t kHeader = 3 + 4 * 8;

void put(std::string& out, std::uint64_t value) {
    if constexpr (std::endian::native == std::endian::big) value = __builtin_bswap64(value);
    char bytes[8];
    std::memcpy(bytes, &value, 8);
    out.append(bytes, 8);
}

std::uint64_t get(std::string_view bytes, std::size_t at) {
    std::uint64_t value = 0;
    std::memcpy(&value, bytes.data() + at, 8);
    if constexpr (std::endian::native == std::endian::big) value = __builtin_bswap64(value);
    return value;
}

}  // namespace

int importance_rank(std::string_view importance) {
    if (importance == "high") return 0;
    if (importance == "medium") return 1;
    if (importance == "low") return 2;
    return 3;
}

std::string encode_listing(const Listing& listing) {
    std::string out;
    out.reserve(kHeader + listing.target.size());
    out += static_cast<char>(kFormat);
    out += static_cast<char>(listing.rank);
    out += static_cast<char>(listing.file ? 1 : 0);
    const FileRecord file = listing.file.value_or(FileRecord{});
    put(out, static_cast<std::uint64_t>(listing.stored_at_ms));
    put(out, static_cast<std::uint64_t>(file.size));
    put(out, static_cast<std::uint64_t>(file.mtime_ns));
    put(out, file.hash);
    out += listing.target;
    return out;
}

std::optional<Listing> decode_listing(std::string_view bytes) {
    if (bytes.size() < kHeader || bytes[0] != static_cast<char>(kFormat) ||
        static_cast<unsigned char>(bytes[1]) > 3 || static_cast<unsigned char>(bytes[2]) > 1) {
        return std::nullopt;
    }
    Listing listing;
    listing.rank = bytes[1];
    listing.stored_at_ms = static_cast<std::int64_t>(get(bytes, 3));
    if (bytes[2] == 1) {
        listing.file = FileRecord{static_cast<std::int64_t>(get(bytes, 11)),
                                  static_cast<std::int64_t>(get(bytes, 19)), get(bytes, 27)};
    }
    listing.target = bytes.substr(kHeader);
    return listing;
}

}  // namespace store
