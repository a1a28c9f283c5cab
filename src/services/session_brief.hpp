#pragma once

#include <string>

namespace services {

// The instruction brief for the model: .orvane-tamblo/brief.md in the working directory when that
// is a regular file whose real path lies inside the working directory (an empty file is an empty
// brief), cut to its first 64 KiB at a character boundary; else the built-in brief. When the file
// was passed over or cut, `note` (if given) receives why. Throws when the file cannot be read or
// is not UTF-8.
std::string get_orvane_session_brief(std::string* note = nullptr);

}  // namespace services
