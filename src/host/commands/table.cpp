#include "host/commands/table.hpp"

#include <algorithm>

#include "platform/clock.hpp"
#include "support/utf8.hpp"

namespace host::commands {

Table::Table(std::vector<std::string> headings) {
    rows_.push_back(std::move(headings));
}

void Table::add(std::vector<std::string> cells) {
    for (auto& cell : cells) cell = printable(cell);
    rows_.push_back(std::move(cells));
}

std::string Table::text() const {
    std::vector<std::size_t> widths(rows_.front().size(), 0);
    for (const auto& row : rows_) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], support::code_point_count(row[i]));
        }
    }
    std::string text;
    for (const auto& row : rows_) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::string pad(widths[i] - support::code_point_count(row[i]), ' ');
            const bool last = i + 1 == row.size();
            if (last) {
                text += pad + row[i];
            } else {
                text += row[i] + pad + "  ";
            }
        }
        text += '\n';
    }
    return text;
}

std::string printable(std::string_view text) {
    std::string out(text);
    for (char& c : out) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) c = '?';
    }
    return out;
}

std::string local_minute(std::int64_t epoch_ms) {
    return platform::local_time_at(static_cast<double>(epoch_ms) / 1000.0, "%Y-%m-%d %H:%M");
}

}  // namespace host::commands
