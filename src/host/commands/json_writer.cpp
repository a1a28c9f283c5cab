#include "host/commands/json_writer.hpp"

#include "support/json.hpp"

namespace host::commands {

void JsonWriter::before_value() {
    if (after_key_) {
        after_key_ = false;
        return;
    }
    if (!first_.empty()) {
        if (!first_.back()) out_ += ", ";
        first_.back() = false;
    }
}

JsonWriter& JsonWriter::begin_object() {
    before_value();
    out_ += '{';
    first_.push_back(true);
    return *this;
}

JsonWriter& JsonWriter::end_object() {
    out_ += '}';
    first_.pop_back();
    return *this;
}

JsonWriter& JsonWriter::begin_array() {
    before_value();
    out_ += '[';
    first_.push_back(true);
    return *this;
}

JsonWriter& JsonWriter::end_array() {
    out_ += ']';
    first_.pop_back();
    return *this;
}

JsonWriter& JsonWriter::key(std::string_view name) {
    before_value();
    support::append_json_string(out_, name);
    out_ += ": ";
    after_key_ = true;
    return *this;
}

JsonWriter& JsonWriter::value(std::string_view text) {
    before_value();
    support::append_json_string(out_, text);
    return *this;
}

JsonWriter& JsonWriter::value(const std::optional<std::string>& text) {
    if (text) return value(std::string_view(*text));
    before_value();
    out_ += "null";
    return *this;
}

JsonWriter& JsonWriter::value(bool flag) {
    before_value();
    out_ += flag ? "true" : "false";
    return *this;
}

JsonWriter& JsonWriter::value(std::int64_t number) {
    before_value();
    out_ += std::to_string(number);
    return *this;
}

JsonWriter& JsonWriter::value(double number) {
    before_value();
    out_ += support::format_double(number);
    return *this;
}

JsonWriter& JsonWriter::strings(const std::vector<std::string>& texts) {
    begin_array();
    for (const auto& text : texts) value(std::string_view(text));
    return end_array();
}

std::string JsonWriter::finish() {
    out_ += '\n';
    return std::move(out_);
}

}  // namespace host::commands
