#pragma once

#include <stdexcept>
#include <string>

namespace platform {

// A failure reported by the operating system, described as "<what>: <system's text>".
class OsError : public std::runtime_error {
  public:
    OsError(const std::string& what, int code);
    int code() const { return code_; }  // errno; a Windows error code on Windows
    // Whether the path the failure is about leads nowhere: a part is missing, or links loop.
    bool leads_nowhere() const;

  private:
    int code_;
};

// Whether the system's error code (errno; a Windows error code on Windows) says that the disk, or
// the space the process may use on it, is full.
bool is_disk_full(int code);

}  // namespace platform
