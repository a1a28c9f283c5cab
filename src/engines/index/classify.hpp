#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace code_index {

// What became of a file of the repository: indexed, or why not. Stored in the index (the numbers
// are part of its format), so that a refresh need not read an unchanged file again to know.
enum class FileState : std::uint8_t {
    indexed = 0,
    large = 1,        // over kMaxFileBytes
    binary = 2,       // a NUL byte near its start, as git tells binary files
    minified = 3,     // very long lines: minified or bundled code
    generated = 4,    // says it was generated and is not to be edited
    timed_out = 5,    // its parse passed the per-file limit
    failed = 6,       // the parser could not run on it
    unreadable = 7,   // vanished, or could not be read
    unsupported = 8,  // no grammar for it: only its path is kept
};
inline constexpr std::size_t kFileStates = 9;

std::string_view state_name(FileState state);

// Larger files are skipped: they are data or generated code far more often than code to read.
inline constexpr std::int64_t kMaxFileBytes = 1 << 20;

// Why a source file with this name and content is not worth parsing, or nullopt when it is.
std::optional<FileState> skip_reason(std::string_view path, std::string_view content);

}  // namespace code_index
