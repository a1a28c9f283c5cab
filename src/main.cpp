#include "host/cli.hpp"
#include "platform/args.hpp"

int main(int argc, char** argv) {
    const platform::Arguments args(argc, argv);
    return host::run(args.argc(), args.argv());
}
