#pragma once

#include <stdexcept>
#include <string>

namespace platform {

// A failure reported by the operating system, described as "<what>: <system's text>".
class OsError : public std::runtime_error {
  public:
    OsError(const std::string& what, int code);
    int code() const { return code_; }

  private:
    int code_;
};

}  // namespace platform
