#include "host/store/freshness.hpp"

#include <stdexcept>

#include "host/store/location.hpp"
#include "platform/file_info.hpp"
#include "platform/fs.hpp"
#include "platform/os_error.hpp"
#include "platform/path.hpp"
#include "support/hash.hpp"

namespace host::store {

namespace {

// Coarser than the modification-time resolution of any file system in use (FAT's is 2 s): a file
// written this close to its storing may change again within the same time stamp.
constexpr std::int64_t kRacyWindowNs = 2'000'000'000;

std::string path_of(const std::string& root, const std::string& target) {
    return platform::split_path(target).root.empty() ? platform::join_path(root, target) : target;
}

// The canonical path when it lies inside `root`; nullopt otherwise (or when it cannot be had).
std::optional<std::string> inside_path(const std::string& root, const std::string& path) {
    std::string canonical;
    try {
        canonical = platform::canonical_path(path);
    } catch (const platform::OsError&) {
        return std::nullopt;
    } catch (const std::invalid_argument&) {
        return std::nullopt;
    }
    if (!is_inside(root, canonical)) return std::nullopt;
    return canonical;
}

std::optional<std::uint64_t> hash_of(const std::string& path) {
    support::ContentHash hash;
    if (!platform::read_file_chunks(path, [&](std::string_view chunk) { hash.update(chunk); })) {
        return std::nullopt;
    }
    return hash.value();
}

}  // namespace

std::optional<FileRecord> capture_file(const std::string& root, const std::string& target) {
    if (target.empty()) return std::nullopt;
    const auto path = inside_path(root, path_of(root, target));
    if (!path) return std::nullopt;
    const auto signature = platform::file_signature(*path);
    if (!signature) return std::nullopt;
    const auto hash = hash_of(*path);
    if (!hash) return std::nullopt;
    return FileRecord{signature->size, signature->mtime_ns, *hash};
}

bool still_fresh(const std::string& root, const std::string& target, const FileRecord& record,
                 std::int64_t stored_at_ms) {
    const std::string path = path_of(root, target);
    const auto signature = platform::file_signature(path);
    if (!signature || signature->size != record.size) return false;
    const bool racy = record.mtime_ns >= stored_at_ms * 1'000'000 - kRacyWindowNs;
    if (signature->mtime_ns == record.mtime_ns && !racy) return true;
    // Only files inside the repository are read.
    const auto inside = inside_path(root, path);
    if (!inside) return false;
    const auto hash = hash_of(*inside);
    return hash && *hash == record.hash;
}

}  // namespace host::store
