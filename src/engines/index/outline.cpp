#include "engines/index/outline.hpp"

#include <algorithm>
#include <bit>
#include <cstring>

#include "engines/index/classify.hpp"
#include "engines/index/kinds.hpp"
#include "engines/index/language.hpp"
#include "platform/file_info.hpp"
#include "platform/fs.hpp"
#include "platform/path.hpp"
#include "support/hash.hpp"

namespace code_index {

std::optional<Outline> file_outline(Database& db, const std::string& path) {
    Transaction read(db, false);
    Statement file =
        db.prepare("SELECT id, language, lines, size, mtime, hash FROM files WHERE path=?1 AND "
                   "state=?2");
    file.bind(1, path).bind(2, static_cast<std::int64_t>(FileState::indexed));
    if (!file.step()) return std::nullopt;
    Outline outline;
    outline.path = path;
    const std::int64_t language = file.integer(1);
    if (language >= 0 && language < static_cast<std::int64_t>(kLanguageCount)) {
        outline.language = language_name(static_cast<Language>(language));
    }
    outline.lines = file.integer(2);
    outline.size = file.integer(3);
    outline.mtime_ns = file.integer(4);
    outline.hash = static_cast<std::uint64_t>(file.integer(5));
    Statement defs = db.prepare(
        "SELECT n.name, d.kind, d.line, d.end_line FROM defs AS d JOIN names AS n ON n.id = "
        "d.name_id WHERE d.file_id=?1 AND d.parent IS NULL ORDER BY d.line");
    defs.bind(1, file.integer(0));
    while (defs.step()) {
        if (outline.top_level.size() == kOutlineEntries) {
            ++outline.more;
            continue;
        }
        outline.top_level.push_back(
            {std::string(defs.text(0)),
             std::string(kind_name(static_cast<DefinitionKind>(defs.integer(1)))), defs.integer(2),
             defs.integer(3)});
    }
    return outline;
}

std::int64_t indexed_file_count(Database& db) {
    Statement count = db.prepare("SELECT count(*) FROM files WHERE state=?1");
    count.bind(1, static_cast<std::int64_t>(FileState::indexed));
    return count.step() ? count.integer(0) : 0;
}

bool unchanged_since_indexed(const std::string& root, const Outline& outline) {
    const std::string path = platform::join_path(root, outline.path);
    const auto signature = platform::file_signature(path);
    if (!signature || signature->size != outline.size) return false;
    if (outline.mtime_ns != -1 && signature->mtime_ns == outline.mtime_ns) return true;
    // The time cannot tell: the content can, read only from a file that is still inside.
    try {
        if (!platform::is_inside(platform::canonical_path(root), platform::canonical_path(path))) {
            return false;
        }
        const auto content = platform::read_plain_file(path, static_cast<std::size_t>(kMaxFileBytes));
        if (!content) return false;
        support::ContentHash hash;
        hash.update(*content);
        return hash.value() == outline.hash;
    } catch (const std::exception&) {
        return false;
    }
}

std::vector<std::string> indexed_files(Database& db, std::size_t limit,
                                       const std::function<bool(std::string_view)>& skip) {
    std::vector<std::string> paths;
    if (limit == 0) return paths;
    // In the order of the path's own index: the first rows are the answer, nothing is sorted.
    Statement rows = db.prepare("SELECT path FROM files WHERE state=?1 ORDER BY path");
    rows.bind(1, static_cast<std::int64_t>(FileState::indexed));
    while (paths.size() < limit && rows.step()) {
        if (!skip || !skip(rows.text(0))) paths.emplace_back(rows.text(0));
    }
    return paths;
}

namespace {

constexpr std::size_t kHashBytes = 8;

std::uint64_t path_hash(std::string_view path) {
    support::ContentHash hash;
    hash.update(path);
    return hash.value();
}

std::uint64_t hash_at(std::string_view hashes, std::size_t i) {
    std::uint64_t value = 0;
    std::memcpy(&value, hashes.data() + i * kHashBytes, kHashBytes);
    if constexpr (std::endian::native == std::endian::big) value = __builtin_bswap64(value);
    return value;
}

}  // namespace

bool has_indexed_digest(Database& db) {
    return db.prepare("SELECT 1 FROM meta WHERE key='indexed_digest'").step();
}

void build_indexed_digest(Database& db) {
    std::vector<std::uint64_t> hashes;
    Statement rows = db.prepare("SELECT path FROM files WHERE state=?1");
    rows.bind(1, static_cast<std::int64_t>(FileState::indexed));
    while (rows.step()) hashes.push_back(path_hash(rows.text(0)));
    std::sort(hashes.begin(), hashes.end());
    std::string bytes;
    bytes.reserve(hashes.size() * kHashBytes);
    for (const std::uint64_t hash : hashes) {
        for (std::size_t b = 0; b < kHashBytes; ++b) bytes += static_cast<char>(hash >> (8 * b));
    }
    db.prepare(
          "INSERT INTO meta(key, value) VALUES('indexed_digest', ?1) "
          "ON CONFLICT(key) DO UPDATE SET value=excluded.value")
        .bind_blob(1, bytes)
        .run();
}

void drop_indexed_digest(Database& db) {
    db.exec("DELETE FROM meta WHERE key='indexed_digest'");
}

IndexedFiles::IndexedFiles(Database& db)
    : db_(db), digest_(db.prepare("SELECT value FROM meta WHERE key='indexed_digest'")) {
    if (!digest_.step()) return;
    hashes_ = digest_.blob(0);
    // Another program's index may hold anything there: what is no digest is not used.
    bool ascending = hashes_.size() % kHashBytes == 0;
    const std::size_t n = hashes_.size() / kHashBytes;
    for (std::size_t i = 1; ascending && i < n; ++i) {
        ascending = hash_at(hashes_, i - 1) <= hash_at(hashes_, i);
    }
    digested_ = ascending;
}

std::int64_t IndexedFiles::count() {
    if (digested_) return static_cast<std::int64_t>(hashes_.size() / kHashBytes);
    return indexed_file_count(db_);
}

bool IndexedFiles::contains(std::string_view path) {
    if (digested_) {
        const std::uint64_t wanted = path_hash(path);
        std::size_t low = 0, high = hashes_.size() / kHashBytes;
        while (low < high) {
            const std::size_t middle = low + (high - low) / 2;
            if (hash_at(hashes_, middle) < wanted) {
                low = middle + 1;
            } else {
                high = middle;
            }
        }
        return low < hashes_.size() / kHashBytes && hash_at(hashes_, low) == wanted;
    }
    if (!lookup_) lookup_.emplace(db_.prepare("SELECT 1 FROM files WHERE path=?1 AND state=?2"));
    lookup_->bind(1, path).bind(2, static_cast<std::int64_t>(FileState::indexed));
    const bool found = lookup_->step();
    lookup_->reset();
    return found;
}

void record_keeper(Database& db, const KeeperState& state) {
    Transaction write(db, true);
    Statement put = db.prepare(
        "INSERT INTO meta(key, value) VALUES(?1, ?2) ON CONFLICT(key) DO UPDATE SET "
        "value=excluded.value");
    put.bind(1, "keeper_pid").bind(2, state.pid).run();
    put.reset();
    put.bind(1, "keeper_watching").bind(2, state.watching).run();
    put.reset();
    put.bind(1, "keeper_since").bind(2, state.since_ms).run();
    write.commit();
}

std::optional<KeeperState> read_keeper(Database& db) {
    Statement rows = db.prepare(
        "SELECT key, value FROM meta WHERE key IN ('keeper_pid', 'keeper_watching', "
        "'keeper_since')");
    KeeperState state;
    bool any = false;
    while (rows.step()) {
        any = true;
        const std::string_view key = rows.text(0);
        if (key == "keeper_pid") state.pid = rows.integer(1);
        if (key == "keeper_watching") state.watching = rows.text(1);
        if (key == "keeper_since") state.since_ms = rows.integer(1);
    }
    if (!any) return std::nullopt;
    return state;
}

std::int64_t refreshed_at(Database& db) {
    Statement row = db.prepare("SELECT value FROM meta WHERE key='refreshed_at'");
    return row.step() ? row.integer(0) : 0;
}

}  // namespace code_index
