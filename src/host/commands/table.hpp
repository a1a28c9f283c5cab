#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace host::commands {

// Columns aligned for a person; the last column is right-aligned (a count).
class Table {
  public:
    explicit Table(std::vector<std::string> headings);
    void add(std::vector<std::string> cells);
    std::string text() const;

  private:
    std::vector<std::vector<std::string>> rows_;
};

// `text` safe to show on a terminal: control characters (an escape sequence from a crafted
// store, a line break) become "?".
std::string printable(std::string_view text);

// "2025-01-02 03:04" in local time.
std::string local_minute(std::int64_t epoch_ms);

}  // namespace host::commands
