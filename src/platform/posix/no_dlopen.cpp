// SQLite's extension loader is linked in and calls dlopen. This program never loads code at run
// time (least of all code a repository ships), so the static link routes that call here
// (-Wl,--wrap=dlopen), which also keeps the linker's warning about dlopen in static programs away.
extern "C" void* __wrap_dlopen(const char* /*file*/, int /*mode*/) {
    return nullptr;
}
