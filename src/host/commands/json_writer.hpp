#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace host::commands {

// Writes one JSON text in the program's form (", " and ": " separators, ASCII with \u escapes)
// as it goes, without building a value first: answers of thousands of rows stay cheap.
class JsonWriter {
  public:
    JsonWriter& begin_object();
    JsonWriter& end_object();
    JsonWriter& begin_array();
    JsonWriter& end_array();
    JsonWriter& key(std::string_view name);

    JsonWriter& value(std::string_view text);
    JsonWriter& value(const char* text) { return value(std::string_view(text)); }
    JsonWriter& value(const std::string& text) { return value(std::string_view(text)); }
    JsonWriter& value(const std::optional<std::string>& text);
    JsonWriter& value(bool flag);
    JsonWriter& value(std::int64_t number);
    JsonWriter& value(double number);  // always with a point or an exponent
    JsonWriter& strings(const std::vector<std::string>& texts);

    // The text, ended by a line feed.
    std::string finish();

  private:
    void before_value();

    std::string out_;
    std::vector<bool> first_;  // per open container: nothing written in it yet
    bool after_key_ = false;
};

}  // namespace host::commands
