#include "platform/args.hpp"

#include "platform/windows/wide.hpp"

namespace {

// The C runtime's own splitting of the wide command line, which the start-up code only runs for a
// wide entry point; the same rules our child processes' command lines are quoted for.
struct StartupInfo {
    int new_mode;
};
extern "C" int __wgetmainargs(int* argc, wchar_t*** argv, wchar_t*** env, int expand_wildcards,
                              StartupInfo* info);

}  // namespace

namespace platform {

Arguments::Arguments(int argc, char** argv) : argc_(argc), argv_(argv) {
    int wide_argc = 0;
    wchar_t** wide_argv = nullptr;
    wchar_t** wide_env = nullptr;
    StartupInfo info{0};
    if (__wgetmainargs(&wide_argc, &wide_argv, &wide_env, 0, &info) != 0 || wide_argv == nullptr) {
        return;  // keep what the narrow start-up code made of it
    }
    storage_.reserve(static_cast<std::size_t>(wide_argc));
    for (int i = 0; i < wide_argc; ++i) storage_.push_back(windows::narrow(wide_argv[i]));
    for (auto& arg : storage_) pointers_.push_back(arg.data());
    pointers_.push_back(nullptr);
    argc_ = wide_argc;
    argv_ = pointers_.data();
}

}  // namespace platform
