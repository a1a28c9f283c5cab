#include "services/session_brief.hpp"

#include <stdexcept>

#include "platform/fs.hpp"
#include "platform/os_error.hpp"
#include "platform/path.hpp"
#include "support/utf8.hpp"

namespace services {

namespace {

constexpr const char* kBriefPath = ".orvane-tamblo/brief.md";
// Far more than any brief needs, and all of it goes into the model's context on every start.
constexpr std::size_t kMaxBriefBytes = 64 * 1024;

// The hooks' own marker of an indexed repository, as the nudge tests it.
constexpr const char* kIndexMarker = "memory/codebase-index/index.db";

constexpr const char* kIndexedIntro =
    "# orvane-tamblo\n"
    "\n"
    "This repository is indexed by orvane-tamblo. Its code index knows the definitions and "
    "references of the code, so find code by name with it rather than with a text search; its "
    "AI cache keeps what earlier sessions learned about the code, so read it before re-reading "
    "files and add to it as you learn. The tools below come from orvane-tamblo's MCP server; the "
    "`tamblo` skill is the full playbook.\n"
    "\n"
    "## Code index tools\n"
    "- `search(action='symbols', query='getUser')`: definitions whose name matches (exactly, "
    "by prefix, by its words); `kind=` and `path=` narrow them.\n"
    "- `symbol(action='definition', name='...')`: where a name is defined; `action='callers'` "
    "who calls it, `action='references'` every use.\n"
    "- `explore(query='...')`: a question or a name, answered from definitions, their uses, the "
    "AI cache and file paths at once.\n"
    "\n"
    "Grep stays right for exact strings (messages, keys) and for the text around an edit.\n";

constexpr const char* kUnindexedIntro =
    "# orvane-tamblo\n"
    "\n"
    "orvane-tamblo's AI cache keeps what earlier sessions learned about this repository's code, "
    "so read it before re-reading files and add to it as you learn. The tools below come from "
    "orvane-tamblo's MCP server.\n"
    "\n"
    "The repository has no code index yet, so finding code by name (the `search`, `symbol` and "
    "`explore` tools) waits for it: `orvane-tamblo index`, run in the repository's root, builds "
    "it.\n";

constexpr const char* kCacheTools =
    "\n"
    "## AI cache tools\n"
    "- `understand(action='recall', target='path/to/file')`: the cached understanding of a file "
    "(purpose, key points, gotchas) and whether the file changed since, before you read the "
    "whole file.\n"
    "- `understand(action='recall', query='...')`: search every cached understanding.\n"
    "- `understand(action='store', scope='file', target='...', purpose='...', key_points=[...], "
    "gotchas=[...])`: cache what you learned about a file or module; refresh it after you edit "
    "the file.\n"
    "- `understand(action='list')`: what is cached, stale entries first.\n"
    "- `remember(action='store', key='...', value='...')`: keep a decision or project fact; "
    "`remember(action='recall', key='...')` gives it back, `remember(action='list')` shows them "
    "all.\n"
    "\n"
    "Both keep their entries in the repository's store, memory/codebase-index/orvane.db.";

// One file-status call: this runs at every session start.
bool indexed() {
    try {
        return platform::is_regular_file(kIndexMarker);
    } catch (const std::exception&) {
        return false;
    }
}

std::string builtin_brief() {
    return std::string(indexed() ? kIndexedIntro : kUnindexedIntro) + kCacheTools;
}

std::string built_in(std::string* note, const std::string& why) {
    if (note != nullptr) *note = std::string(kBriefPath) + why + "; using the built-in brief";
    return builtin_brief();
}

// The longest start of `text` no longer than `size` bytes that does not split a UTF-8 sequence.
std::size_t character_boundary(const std::string& text, std::size_t size) {
    for (int back = 0; back < 3 && size > 0 && size < text.size(); ++back) {
        if ((static_cast<unsigned char>(text[size]) & 0xC0) != 0x80) break;
        --size;
    }
    return size;
}

}  // namespace

std::string get_orvane_session_brief(std::string* note) {
    // The repository decides what the file is; it must not decide which of the user's files
    // reaches the model. So only a regular file inside the repository is read.
    std::string path, repo;
    try {
        path = platform::canonical_path(kBriefPath);
        repo = platform::canonical_path(platform::current_directory());
    } catch (const platform::OsError& e) {
        if (!e.leads_nowhere()) throw;
        return built_in(note, std::string(" cannot be resolved (") + e.what() + ")");
    }
    if (!platform::is_inside(repo, path)) {
        return built_in(note, " leads outside the repository, to " + path);
    }
    auto content = platform::read_regular_file(path, kMaxBriefBytes + 1);
    if (!content) {
        if (platform::path_exists(path)) return built_in(note, " is not a regular file");
        return builtin_brief();
    }
    if (content->size() > kMaxBriefBytes) {
        content->resize(character_boundary(*content, kMaxBriefBytes));
        if (note != nullptr) {
            *note = std::string(kBriefPath) + " holds more than " + std::to_string(kMaxBriefBytes) +
                    " bytes; using its first " + std::to_string(content->size());
        }
    }
    if (auto error = support::utf8_error(*content)) {
        throw std::runtime_error(std::string(kBriefPath) + ": " + *error);
    }
    return *content;
}

}  // namespace services
