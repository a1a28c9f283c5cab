#include "platform/windows/rename.hpp"

namespace platform::windows {

DWORD rename_replacing(const std::wstring& from, const std::wstring& to) {
    for (int attempt = 0;; ++attempt) {
        if (MoveFileExW(from.c_str(), to.c_str(),
                        MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
            return 0;
        }
        const DWORD error = GetLastError();
        if ((error != ERROR_ACCESS_DENIED && error != ERROR_SHARING_VIOLATION) || attempt == 20) {
            return error;
        }
        Sleep(attempt < 5 ? 1 : 10);
    }
}

}  // namespace platform::windows
