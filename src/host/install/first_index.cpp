#include "host/install/first_index.hpp"

#include "engines/index/database.hpp"
#include "engines/index/indexer.hpp"
#include "engines/index/progress_bar.hpp"
#include "platform/fs.hpp"
#include "platform/io.hpp"
#include "support/text.hpp"

namespace host::install {

namespace {

constexpr const char* kIndexShown = code_index::kIndexDisplayPath;

std::string count(std::int64_t n, const char* one, const char* many) {
    return support::grouped(n) + " " + (n == 1 ? one : many);
}

}  // namespace

std::string build_first_index(const std::string& repo) {
    try {
        code_index::ProgressBar bar;
        code_index::IndexOptions options;
        options.progress = [&](const code_index::IndexProgress& p) { bar.update(p); };
        const code_index::IndexSummary summary = code_index::update_index(repo, options);
        bar.finish();
        const std::int64_t files =
            summary.files[static_cast<std::size_t>(code_index::FileState::indexed)];
        return std::string("  ") + kIndexShown + ": code index " +
               (summary.built ? "built" : "brought up to date") + ", " +
               count(files, "source file", "source files") + ", " +
               count(summary.definitions, "definition", "definitions") + ", " +
               count(summary.references, "reference", "references") + "\n";
    } catch (const std::exception& e) {
        try {
            platform::write_stderr(
                std::string("orvane-tamblo install-hooks: warning: the code index was not "
                            "built: ") +
                e.what() +
                "; the installation stands, and `orvane-tamblo index` builds the index later\n");
        } catch (...) {
        }
        return "";
    }
}

std::string first_index_dry_run_text() {
    return std::string("would build the code index ") + kIndexShown + " (or bring it up to date)\n";
}

std::string index_left_alone_line(const std::string& repo, bool user_scope, bool uninstall) {
    if (user_scope) {
        return uninstall ? ""
                         : "  code index: each repository has its own; `orvane-tamblo index` "
                           "builds it there\n";
    }
    if (!uninstall) {
        return std::string("  ") + kIndexShown +
               ": not built (--no-index); `orvane-tamblo index` builds it\n";
    }
    // The index is the repository's data, as the store beside it is, not configuration.
    try {
        if (!platform::is_regular_file(platform::join_path(repo, kIndexShown))) return "";
    } catch (const std::exception&) {
        return "";
    }
    return std::string("  ") + kIndexShown +
           ": left as it is, with the rest of the repository's data in memory/codebase-index "
           "(delete it yourself to drop it)\n";
}

}  // namespace host::install
