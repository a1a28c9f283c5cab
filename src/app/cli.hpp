#pragma once

namespace app {

// Parses the whole command line and runs the chosen command; the result is the exit status.
int run(int argc, char** argv);

}  // namespace app
