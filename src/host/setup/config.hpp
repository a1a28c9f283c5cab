#pragma once

#include <string>

namespace host {

// The instruction brief for the model: the whole of .orvane-tamblo/brief.md in the working
// directory when that file exists (an empty file is an empty brief), else the built-in brief.
// Throws when the file exists but cannot be read or is not UTF-8.
std::string get_orvane_session_brief();

}  // namespace host
