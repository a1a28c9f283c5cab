#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "engines/store/freshness.hpp"

namespace store {

// What listing an entry needs (its order and its freshness), packed into one value stored with
// the entry: scanning a large store then decodes one column per entry instead of seven, which is
// most of what SQLite spends on such a scan.
struct Listing {
    int rank = 3;  // importance: 0 high, 1 medium, 2 low, 3 anything else
    std::int64_t stored_at_ms = 0;
    std::optional<FileRecord> file;
    std::string_view target;  // points into the decoded bytes
};

int importance_rank(std::string_view importance);

std::string encode_listing(const Listing& listing);

// nullopt for bytes that are no listing of this release (a damaged or crafted database).
std::optional<Listing> decode_listing(std::string_view bytes);

}  // namespace store
