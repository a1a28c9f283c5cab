#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace platform {

// Once, before anything else: standard descriptors that were closed are reopened so that no later
// file takes their number (a write to such a stream still fails), a vanished reader of our output
// makes the write fail instead of killing the process, and children can be waited for whatever
// the parent left them as.
void prepare_standard_streams();

// All of standard input, as bytes. Throws OsError when it cannot be read.
std::string read_stdin();

// Writes all of `data`; throws OsError on failure (a closed stream, a full disk, a gone reader).
void write_stdout(std::string_view data);
void write_stderr(std::string_view data);

}  // namespace platform

namespace platform {

// Reads what standard input has ready, up to `size` bytes, waiting for at least one; 0 at its
// end. Throws OsError when it cannot be read.
std::size_t read_stdin_some(char* buffer, std::size_t size);

}  // namespace platform
