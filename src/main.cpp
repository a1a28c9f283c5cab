#include "app/cli.hpp"
#include "platform/args.hpp"
#include "platform/process.hpp"

int main(int argc, char** argv) {
    const platform::Arguments args(argc, argv);
    platform::set_program_entry(&app::run);
    return app::run(args.argc(), args.argv());
}
