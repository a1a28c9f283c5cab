#pragma once

namespace platform {

// Whether standard error is a terminal (a console on Windows): where a progress bar may redraw
// itself. Never for a pipe or a file, which would keep every frame.
bool stderr_is_terminal();

}  // namespace platform
