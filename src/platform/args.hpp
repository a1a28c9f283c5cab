#pragma once

#include <string>
#include <vector>

namespace platform {

// The program's command-line arguments as UTF-8 text. POSIX systems hand them over as bytes
// already; Windows has them as UTF-16 in one command line, split here as the C runtime splits it.
class Arguments {
  public:
    Arguments(int argc, char** argv);
    int argc() const { return argc_; }
    char** argv() const { return argv_; }

  private:
    std::vector<std::string> storage_;
    std::vector<char*> pointers_;
    int argc_;
    char** argv_;
};

}  // namespace platform
