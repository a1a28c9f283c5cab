#pragma once

#include <windows.h>

#include <string>

namespace platform::windows {

// Renames `from` over `to`, replacing what is there (a link itself, never its target). A reader
// holding the old file open for a moment (or a virus scanner) makes the rename fail briefly, so
// it is tried again for a while. Returns 0, or the system's error code.
DWORD rename_replacing(const std::wstring& from, const std::wstring& to);

}  // namespace platform::windows
