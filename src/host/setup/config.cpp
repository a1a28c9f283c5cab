#include "host/setup/config.hpp"

#include <stdexcept>

#include "platform/fs.hpp"
#include "support/utf8.hpp"

namespace host {

namespace {

constexpr const char* kBriefPath = ".orvane-tamblo/brief.md";

constexpr const char* kBuiltinBrief =
    "# orvane-tamblo\n"
    "\n"
    "This repository is indexed by orvane-tamblo. Its AI cache keeps what earlier sessions "
    "learned about the code, so read it before re-reading files and add to it as you learn. The "
    "`understand` and `remember` tools come from orvane-tamblo's MCP server; both keep their "
    "entries in the repository's store, memory/codebase-index/orvane.db.\n"
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
    "all.";

}  // namespace

std::string get_orvane_session_brief() {
    auto content = platform::read_regular_file(kBriefPath);
    if (!content) return kBuiltinBrief;
    if (auto error = support::utf8_error(*content)) {
        throw std::runtime_error(std::string(kBriefPath) + ": " + *error);
    }
    return *content;
}

}  // namespace host
