#include "platform/io.hpp"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <algorithm>
#include <iterator>

#include "platform/os_error.hpp"
#include "platform/windows/wide.hpp"

namespace platform {

namespace {

bool usable(HANDLE h) {
    return h != nullptr && h != INVALID_HANDLE_VALUE;
}

bool is_console(HANDLE h) {
    DWORD mode = 0;
    return GetConsoleMode(h, &mode) != 0;
}

// Ctrl+Z typed at the console ended its input, as the C runtime has it.
bool console_ended = false;

// Up to `size` bytes of UTF-8 from what a person types at the console, which hands over UTF-16.
std::size_t read_console(HANDLE h, char* buffer, std::size_t size) {
    if (console_ended) return 0;
    // Room for the longest UTF-8 form of each code unit.
    wchar_t wide[4096];
    const DWORD want = static_cast<DWORD>(std::min<std::size_t>(std::size(wide), size / 3));
    DWORD n = 0;
    if (want == 0) return 0;
    if (!ReadConsoleW(h, wide, want, &n, nullptr)) {
        throw OsError("cannot read standard input", static_cast<int>(GetLastError()));
    }
    std::wstring_view chunk(wide, n);
    if (const std::size_t end = chunk.find(L'\x1a'); end != std::wstring_view::npos) {
        chunk = chunk.substr(0, end);
        console_ended = true;
    }
    const std::string text = windows::narrow(chunk);
    std::copy(text.begin(), text.end(), buffer);
    return text.size();
}

void write_all(DWORD which, std::string_view data, const char* what) {
    const HANDLE h = GetStdHandle(which);
    if (!usable(h)) throw OsError(std::string("cannot write ") + what, ERROR_INVALID_HANDLE);
    if (is_console(h)) {
        // The console shows UTF-16; bytes written to it would pass through a legacy code page.
        const std::wstring wide = windows::widen(data);
        std::wstring_view rest = wide;
        while (!rest.empty()) {
            DWORD n = 0;
            if (!WriteConsoleW(h, rest.data(), static_cast<DWORD>(rest.size()), &n, nullptr)) {
                throw OsError(std::string("cannot write ") + what,
                              static_cast<int>(GetLastError()));
            }
            rest.remove_prefix(n);
        }
        return;
    }
    while (!data.empty()) {
        DWORD n = 0;
        const DWORD chunk = data.size() > (1u << 30) ? (1u << 30) : static_cast<DWORD>(data.size());
        if (!WriteFile(h, data.data(), chunk, &n, nullptr)) {
            throw OsError(std::string("cannot write ") + what, static_cast<int>(GetLastError()));
        }
        data.remove_prefix(n);
    }
}

}  // namespace

void prepare_standard_streams() {
    // What the parser prints goes through the C runtime: bytes as they are, no CR before each LF.
    const DWORD handles[] = {STD_INPUT_HANDLE, STD_OUTPUT_HANDLE, STD_ERROR_HANDLE};
    for (int fd = 0; fd <= 2; ++fd) {
        if (usable(GetStdHandle(handles[fd]))) _setmode(fd, _O_BINARY);
    }
}

std::size_t read_stdin_some(char* buffer, std::size_t size) {
    const HANDLE h = GetStdHandle(STD_INPUT_HANDLE);
    if (!usable(h)) return 0;  // no standard input at all reads as an empty one
    if (is_console(h)) return read_console(h, buffer, size);
    DWORD n = 0;
    const DWORD want = size > (1u << 30) ? (1u << 30) : static_cast<DWORD>(size);
    if (!ReadFile(h, buffer, want, &n, nullptr)) {
        const DWORD error = GetLastError();
        // The writer of a pipe closing its end is the end of the input.
        if (error == ERROR_BROKEN_PIPE || error == ERROR_HANDLE_EOF) return 0;
        throw OsError("cannot read standard input", static_cast<int>(error));
    }
    return n;
}

std::string read_stdin() {
    std::string data;
    char buf[65536];
    while (const std::size_t n = read_stdin_some(buf, sizeof buf)) data.append(buf, n);
    return data;
}

void write_stdout(std::string_view data) {
    write_all(STD_OUTPUT_HANDLE, data, "standard output");
}

void write_stderr(std::string_view data) {
    write_all(STD_ERROR_HANDLE, data, "standard error");
}

}  // namespace platform
