#pragma once

#include <string>

namespace host::mcp {

// The target as the hooks name it: a path inside the repository `root` relative to it ("./a//b"
// and "/abs/repo/a/b" both give "a/b"), anything else lexically tidied. The hooks recall a file
// by its path relative to the repository, so a model that stores it under another spelling would
// otherwise never be pointed to it.
std::string normalize_target(const std::string& root, const std::string& target);

}  // namespace host::mcp
