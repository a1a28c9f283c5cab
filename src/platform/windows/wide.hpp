#pragma once

#include <string>
#include <string_view>

namespace platform::windows {

// UTF-16 for the Windows API from the program's UTF-8. A surrogate encoded on its own (as the JSON
// reader keeps a lone \udXXX escape) becomes that code unit again, so every file name Windows can
// hold survives the round trip; a byte that is not UTF-8 becomes U+FFFD.
std::wstring widen(std::string_view text);

// UTF-8 from UTF-16; an unpaired surrogate is encoded on its own, as widen() reads it back.
std::string narrow(std::wstring_view text);

// widen() for a path handed to the file API: an absolute path too long for the classic limit is
// given the \\?\ form, which has none.
std::wstring wide_path(std::string_view path);

}  // namespace platform::windows
