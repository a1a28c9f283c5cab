#include "platform/io.hpp"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

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

// A console hands over UTF-16 typed by a person; Ctrl+Z ends the input, as the C runtime has it.
std::string read_console(HANDLE h) {
    std::wstring text;
    wchar_t buf[4096];
    for (;;) {
        DWORD n = 0;
        if (!ReadConsoleW(h, buf, static_cast<DWORD>(std::size(buf)), &n, nullptr)) {
            throw OsError("cannot read standard input", static_cast<int>(GetLastError()));
        }
        const std::wstring_view chunk(buf, n);
        const std::size_t end = chunk.find(L'\x1a');
        text.append(chunk.substr(0, end));
        if (n == 0 || end != std::wstring_view::npos) return windows::narrow(text);
    }
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

std::string read_stdin() {
    const HANDLE h = GetStdHandle(STD_INPUT_HANDLE);
    if (!usable(h)) return std::string();  // no standard input at all reads as an empty one
    if (is_console(h)) return read_console(h);
    std::string data;
    char buf[65536];
    for (;;) {
        DWORD n = 0;
        if (!ReadFile(h, buf, sizeof buf, &n, nullptr)) {
            const DWORD error = GetLastError();
            // The writer of a pipe closing its end is the end of the input.
            if (error == ERROR_BROKEN_PIPE || error == ERROR_HANDLE_EOF) return data;
            throw OsError("cannot read standard input", static_cast<int>(error));
        }
        if (n == 0) return data;
        data.append(buf, n);
    }
}

void write_stdout(std::string_view data) {
    write_all(STD_OUTPUT_HANDLE, data, "standard output");
}

void write_stderr(std::string_view data) {
    write_all(STD_ERROR_HANDLE, data, "standard error");
}

}  // namespace platform
