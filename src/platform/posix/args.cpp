#include "platform/args.hpp"

namespace platform {

Arguments::Arguments(int argc, char** argv) : argc_(argc), argv_(argv) {}

}  // namespace platform
