#include "platform/process.hpp"

#include <windows.h>

#include <atomic>
#include <mutex>
#include <optional>
#include <stdexcept>

#include "platform/common/process_text.hpp"
#include "platform/os_error.hpp"
#include "platform/windows/wide.hpp"

namespace platform {

namespace {

using Clock = std::chrono::steady_clock;

// The job of the child that runs now, for the console control handler: Ctrl+C, Ctrl+Break or a
// closed console take the child and everything it started down before this process ends.
std::mutex running_job_mutex;
HANDLE running_job = nullptr;

BOOL WINAPI on_console_control(DWORD event) {
    if (event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT || event == CTRL_CLOSE_EVENT) {
        const std::lock_guard lock(running_job_mutex);
        if (running_job != nullptr) TerminateJobObject(running_job, STATUS_CONTROL_C_EXIT);
    }
    return FALSE;  // the default handler then ends this process as the event would
}

void install_console_handler() {
    static std::once_flag once;
    std::call_once(once, [] { SetConsoleCtrlHandler(on_console_control, TRUE); });
}

struct Handle {
    HANDLE h = nullptr;
    Handle() = default;
    explicit Handle(HANDLE handle) : h(handle == INVALID_HANDLE_VALUE ? nullptr : handle) {}
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() { reset(); }
    void reset(HANDLE handle = nullptr) {
        if (h != nullptr) CloseHandle(h);
        h = handle == INVALID_HANDLE_VALUE ? nullptr : handle;
    }
};

DWORD milliseconds_left(Clock::time_point deadline) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    return left.count() <= 0 ? 0 : static_cast<DWORD>(left.count());
}

[[noreturn]] void start_failed(const std::string& program, DWORD error) {
    throw ProcessStartError(OsError("could not start " + program, static_cast<int>(error)).what());
}

// One argument as the C runtime's parser reads it back: blanks and quotes inside quotes,
// backslashes doubled only where a quote follows them.
void append_quoted(std::wstring& line, const std::wstring& arg) {
    if (!arg.empty() && arg.find_first_of(L" \t\n\v\"") == std::wstring::npos) {
        line += arg;
        return;
    }
    line += L'"';
    std::size_t backslashes = 0;
    for (const wchar_t c : arg) {
        if (c == L'\\') {
            ++backslashes;
            continue;
        }
        line.append(c == L'"' ? backslashes * 2 + 1 : backslashes, L'\\');
        backslashes = 0;
        line += c;
    }
    line.append(backslashes * 2, L'\\');
    line += L'"';
}

std::wstring command_line(const std::vector<std::string>& argv) {
    // The program name is read up to the next quote, without escapes.
    std::wstring line = L"\"" + windows::widen(argv[0]) + L"\"";
    for (std::size_t i = 1; i < argv.size(); ++i) {
        line += L' ';
        append_quoted(line, windows::widen(argv[i]));
    }
    return line;
}

// Our end of a pipe the child writes to, read asynchronously so that both can be drained at
// once; the child's end is inheritable.
struct Pipe {
    Handle ours;
    Handle theirs;
    Handle event;
    OVERLAPPED overlapped{};
    char buffer[65536];
    bool open = true;
    bool pending = false;
    std::string* sink = nullptr;  // nullptr: read and thrown away

    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    explicit Pipe(std::string* target) : sink(target) {
        static std::atomic<unsigned> serial{0};
        const std::wstring name =
            L"\\\\.\\pipe\\orvane-tamblo-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
            std::to_wstring(serial++) + L"-" + std::to_wstring(GetTickCount64());
        ours.reset(CreateNamedPipeW(
            name.c_str(),
            PIPE_ACCESS_INBOUND | FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE,
            PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS, 1, 0,
            sizeof buffer, 0, nullptr));
        if (ours.h == nullptr) return;
        SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
        theirs.reset(CreateFileW(name.c_str(), GENERIC_WRITE, 0, &inherit, OPEN_EXISTING,
                                 FILE_ATTRIBUTE_NORMAL, nullptr));
        event.reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        overlapped.hEvent = event.h;
    }
    ~Pipe() {
        if (pending) {
            // The buffer must outlive the read that fills it.
            CancelIoEx(ours.h, &overlapped);
            DWORD n = 0;
            GetOverlappedResult(ours.h, &overlapped, &n, TRUE);
        }
    }
    bool ready() const { return ours.h != nullptr && theirs.h != nullptr && event.h != nullptr; }

    void start_read() {
        ResetEvent(event.h);
        if (ReadFile(ours.h, buffer, sizeof buffer, nullptr, &overlapped) ||
            GetLastError() == ERROR_IO_PENDING) {
            pending = true;
        } else {
            open = false;  // the writers are gone (ERROR_BROKEN_PIPE) or the pipe failed
        }
    }

    // Takes what the finished read brought; false when it would pass the output limit.
    bool finish_read() {
        pending = false;
        DWORD n = 0;
        if (!GetOverlappedResult(ours.h, &overlapped, &n, FALSE)) {
            open = false;
            return true;
        }
        if (sink != nullptr) {
            if (sink->size() + n > kMaxChildOutput) return false;
            sink->append(buffer, n);
        }
        start_read();
        return true;
    }
};

// The child and everything it starts, in a job; whenever the run ends before the child has been
// waited for (time-out, too much output, any exception on the way), all of it is killed and the
// child waited for.
class Child {
  public:
    Child() : job_(CreateJobObjectW(nullptr, nullptr)) {
        // Closing the job kills what is left in it, even when this process is terminated without
        // a word (TerminateProcess, which is how an agent stops a hook it gave up on). A program
        // that means to outlive the hook leaves the job on purpose, as setsid() does on POSIX.
        JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
        limits.BasicLimitInformation.LimitFlags =
            JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE | JOB_OBJECT_LIMIT_BREAKAWAY_OK;
        if (job_.h != nullptr) {
            SetInformationJobObject(job_.h, JobObjectExtendedLimitInformation, &limits,
                                    sizeof limits);
            const std::lock_guard lock(running_job_mutex);
            running_job = job_.h;
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child() {
        {
            const std::lock_guard lock(running_job_mutex);
            running_job = nullptr;
        }
        if (process_.h != nullptr && !waited_) {
            TerminateJobObject(job_.h, 1);
            WaitForSingleObject(process_.h, INFINITE);
        }
    }

    // Starts `program` with the command line `line`, its output on the pipes' ends and standard
    // input shared, inside the job before it runs a single instruction. Throws ProcessStartError.
    void start(const std::string& name, const std::wstring& program, std::wstring line, Pipe& out,
               Pipe& err) {
        if (job_.h == nullptr) start_failed(name, GetLastError());
        // Standard input is shared with the child, through a copy it may inherit.
        Handle input;
        const HANDLE own_input = GetStdHandle(STD_INPUT_HANDLE);
        if (own_input != nullptr && own_input != INVALID_HANDLE_VALUE) {
            HANDLE copy = nullptr;
            if (DuplicateHandle(GetCurrentProcess(), own_input, GetCurrentProcess(), &copy, 0, TRUE,
                                DUPLICATE_SAME_ACCESS)) {
                input.reset(copy);
            }
        }
        // Only these handles pass to the child, not whatever else of ours happens to be
        // inheritable.
        HANDLE inherited[3] = {out.theirs.h, err.theirs.h, input.h};
        const DWORD inherited_count = input.h != nullptr ? 3 : 2;
        SIZE_T size = 0;
        InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
        std::string attribute_storage(size, '\0');
        auto* attributes = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(attribute_storage.data());
        if (!InitializeProcThreadAttributeList(attributes, 1, 0, &size) ||
            !UpdateProcThreadAttribute(attributes, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, inherited,
                                       inherited_count * sizeof(HANDLE), nullptr, nullptr)) {
            start_failed(name, GetLastError());
        }
        STARTUPINFOEXW startup{};
        startup.StartupInfo.cb = sizeof startup;
        startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
        startup.StartupInfo.hStdInput = input.h;
        startup.StartupInfo.hStdOutput = out.theirs.h;
        startup.StartupInfo.hStdError = err.theirs.h;
        startup.lpAttributeList = attributes;

        PROCESS_INFORMATION info{};
        // Suspended until it is in the job, so that nothing it starts escapes the deadline.
        const BOOL started = CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, TRUE,
                                            CREATE_SUSPENDED | EXTENDED_STARTUPINFO_PRESENT,
                                            nullptr, nullptr, &startup.StartupInfo, &info);
        const DWORD start_error = GetLastError();
        DeleteProcThreadAttributeList(attributes);
        if (!started) start_failed(name, start_error);
        process_.reset(info.hProcess);
        thread_.reset(info.hThread);
        if (!AssignProcessToJobObject(job_.h, process_.h)) {
            const DWORD error = GetLastError();
            TerminateProcess(process_.h, 1);  // not in the job: the guard cannot reach it
            WaitForSingleObject(process_.h, INFINITE);
            waited_ = true;
            start_failed(name, error);
        }
        ResumeThread(thread_.h);
        // Only the child writes to the pipes now, so they close when it and its children are done.
        out.theirs.reset();
        err.theirs.reset();
    }

    // The exit code once the child has ended within `ms`, else nullopt.
    std::optional<DWORD> wait(DWORD ms, const std::vector<std::string>& argv) {
        if (WaitForSingleObject(process_.h, ms) != WAIT_OBJECT_0) return std::nullopt;
        waited_ = true;
        DWORD code = 0;
        if (!GetExitCodeProcess(process_.h, &code)) {
            throw ProcessWaitError(
                OsError("cannot learn how '" + process_text::describe(argv) + "' ended",
                        static_cast<int>(GetLastError()))
                    .what());
        }
        return code;
    }

  private:
    Handle job_;
    Handle process_;
    Handle thread_;
    bool waited_ = false;
};

// Reads both pipes until the child closes them, keeping what `out` keeps.
void drain(Pipe& out, Pipe& err, Clock::time_point deadline, const std::vector<std::string>& argv,
           std::chrono::milliseconds timeout) {
    out.start_read();
    err.start_read();
    while (out.open || err.open) {
        HANDLE events[2];
        Pipe* pipes[2];
        DWORD count = 0;
        for (Pipe* pipe : {&out, &err}) {
            if (!pipe->open) continue;
            events[count] = pipe->event.h;
            pipes[count++] = pipe;
        }
        const DWORD wait_ms = milliseconds_left(deadline);
        if (wait_ms == 0) process_text::time_out(argv, timeout);
        const DWORD ready = WaitForMultipleObjects(count, events, FALSE, wait_ms);
        if (ready == WAIT_TIMEOUT) process_text::time_out(argv, timeout);
        if (ready >= WAIT_OBJECT_0 + count) break;
        if (!pipes[ready - WAIT_OBJECT_0]->finish_read()) {
            throw ProcessOutputTooLarge(
                "command '" + process_text::describe(argv) + "' wrote more than " +
                std::to_string(kMaxChildOutput >> 20) + " MiB to standard output");
        }
    }
}

// The command line of `argv`, when Windows can carry it. Throws ProcessStartError.
std::wstring checked_command_line(const std::vector<std::string>& argv) {
    // The program name goes between quotes, which no escape can put inside it.
    if (argv[0].find('"') != std::string::npos) start_failed(argv[0], ERROR_INVALID_NAME);
    std::wstring line = command_line(argv);
    // The most a command line may hold, its terminating NUL included.
    if (line.size() >= 32767) start_failed(argv[0], ERROR_FILENAME_EXCED_RANGE);
    return line;
}

}  // namespace

void set_program_entry(ProgramEntry /*entry*/) {}

ProcessResult run_process(const std::vector<std::string>& argv, std::chrono::milliseconds timeout,
                          ChildOutput output) {
    process_text::check_arguments(argv);
    const auto deadline = Clock::now() + timeout;
    install_console_handler();
    const auto program = find_program(argv[0]);
    if (!program) start_failed(argv[0], ERROR_FILE_NOT_FOUND);
    std::wstring line = checked_command_line(argv);

    ProcessResult result;
    Pipe out(output == ChildOutput::keep ? &result.out : nullptr);
    Pipe err(nullptr);  // drained, never kept
    if (!out.ready() || !err.ready()) start_failed(argv[0], GetLastError());
    Child child;
    child.start(argv[0], windows::wide_path(*program), std::move(line), out, err);
    drain(out, err, deadline, argv, timeout);

    // Both streams are closed; the child is normally gone by now or about to be.
    const auto code = child.wait(milliseconds_left(deadline), argv);
    if (!code) process_text::time_out(argv, timeout);
    result.exit_code = static_cast<int>(*code);
    return result;
}

std::int64_t current_process_id() {
    return static_cast<std::int64_t>(GetCurrentProcessId());
}

}  // namespace platform
