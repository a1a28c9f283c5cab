#pragma once

#include <cstdint>

namespace platform {

// Whether a process with this id is running now (one we may not signal counts). Ids are reused:
// a true answer says that some process has the id, not that it is the one that wrote it down.
bool process_running(std::int64_t pid);

}  // namespace platform
