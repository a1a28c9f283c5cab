#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace support {

// A value of the wrong kind where a step needs another (a member read from a list, a length
// taken of a number). Nothing forgiving catches it; it ends a hook through the dispatcher's guard.
class TypeError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Text that is not one JSON document (or not UTF-8).
class JsonParseError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// A document nested deeper than kMaxJsonDepth. Not a JsonParseError: callers that forgive bad
// text must still let this one reach the hook's guard.
class JsonDepthError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Deepest nesting we parse or write; keeps every recursive walk of a document shallow.
inline constexpr std::size_t kMaxJsonDepth = 1000;

// One JSON value. Objects keep their members in insertion order. Strings hold UTF-8, except that
// a lone surrogate from a \u escape is kept in its three-byte generalized form (WTF-8), so that
// text an agent cut inside a surrogate pair survives a round trip. Integers keep their digits
// whatever their size; a number beyond the double range keeps its literal.
class Json {
  public:
    // How a number is held besides a double, for the reader, the writer and plain_text().
    struct Integer {
        std::string digits;  // as written, "-0" made "0"
    };
    struct BigReal {
        std::string literal;  // a literal beyond the double range, as written
    };

    enum class Type { null, boolean, number, string, array, object };
    using Array = std::vector<Json>;
    using Member = std::pair<std::string, Json>;
    using Object = std::vector<Member>;

    Json() = default;
    Json(std::nullptr_t) {}
    Json(bool value) : value_(value) {}
    template <std::integral T>
    requires(!std::same_as<T, bool>) Json(T value) : value_(Integer{std::to_string(value)}) {}
    Json(double value) : value_(value) {}
    Json(const char* text) : value_(std::string(text)) {}
    Json(std::string text) : value_(std::move(text)) {}
    Json(std::string_view text) : value_(std::string(text)) {}
    explicit Json(Integer number) : value_(std::move(number)) {}
    explicit Json(BigReal number) : value_(std::move(number)) {}
    static Json array(Array items = {});
    static Json object();
    // A number from its JSON literal; an integer when it has no '.', 'e' or 'E'. Throws
    // JsonParseError for text that is not a JSON number.
    static Json number(std::string literal);

    Type type() const;
    bool is_null() const { return value_.index() == kNull; }
    bool is_bool() const { return value_.index() == kBool; }
    bool is_number() const;
    // A number written without fraction or exponent, of any size.
    bool is_integer() const { return value_.index() == kInteger; }
    bool is_string() const { return value_.index() == kString; }
    bool is_array() const { return value_.index() == kArray; }
    bool is_object() const { return value_.index() == kObject; }

    // Each throws TypeError for a value of another kind.
    bool as_bool() const;
    double as_double() const;  // a literal beyond the double range gives +-infinity
    std::optional<long long> as_int64() const;  // an integer that fits, else nullopt
    const std::string& as_string() const;

    // Arrays and objects; TypeError for other kinds.
    std::size_t size() const;
    bool empty() const { return size() == 0; }
    const Array& elements() const;
    Array& elements();
    const Json& operator[](std::size_t index) const;
    void push_back(Json value);
    const Object& members() const;
    const Json* find(std::string_view key) const;  // nullptr when missing
    // Replaces the value of `key` in its place, or appends the member; returns *this.
    Json& set(std::string key, Json value);

    friend bool operator==(const Json& a, const Json& b);
    // True only for a string equal to `text`.
    bool operator==(std::string_view text) const {
        return is_string() && std::get<kString>(value_) == text;
    }
    bool operator==(const char* text) const { return *this == std::string_view(text); }

    const Integer* integer() const { return std::get_if<kInteger>(&value_); }
    const BigReal* big_real() const { return std::get_if<kBigReal>(&value_); }
    const double* real() const { return std::get_if<kReal>(&value_); }

  private:
    // Members plus, once the object has grown past a few members, a hash index of their
    // positions, so that neither lookups nor the reader's duplicate checks grow quadratic.
    struct ObjectBody {
        Object members;
        std::unique_ptr<std::vector<std::uint32_t>> slots;  // 0 empty, else position + 1

        ObjectBody() = default;
        ObjectBody(ObjectBody&&) noexcept = default;
        ObjectBody& operator=(ObjectBody&&) noexcept = default;
        ObjectBody(const ObjectBody& other);
        ObjectBody& operator=(const ObjectBody& other);

        std::size_t position(std::string_view key) const;  // members.size() when missing
        void put(std::string key, Json value);
        void index(std::size_t pos);
        void rehash();
    };

    enum : std::size_t { kNull, kBool, kInteger, kReal, kBigReal, kString, kArray, kObject };
    std::variant<std::monostate, bool, Integer, double, BigReal, std::string, Array, ObjectBody>
        value_;

    const ObjectBody& object_body() const;
};

// Exactly one JSON document: RFC 8259 white space around it and nothing else after it (a byte-order
// mark is not white space). Throws JsonParseError for anything else, JsonDepthError for nesting
// deeper than kMaxJsonDepth.
Json parse_json(std::string_view text);

// The one JSON text form this program writes: one line, ", " and ": " separators, members in
// insertion order, pure ASCII (lowercase \uXXXX, surrogate pairs beyond U+FFFF, a lone surrogate
// as its own escape), the slash unescaped, integers digit for digit, other numbers as
// format_double() writes them. Throws std::runtime_error for a string that is not valid UTF-8
// (lone surrogates allowed) or a document nested deeper than kMaxJsonDepth.
std::string to_json_text(const Json& value);

// Appends `text` as a quoted, escaped JSON string.
void append_json_string(std::string& out, std::string_view text);

// The shortest decimal digits that read back to the same double, laid out as fixed notation with
// at least one digit after the point for exponents -4..15 and as d.ddde+XX outside that range.
std::string format_double(double value);

// Absent, null, false, 0, 0.0, "", [] and {} are false; everything else is true.
bool truthy(const Json& value);
inline bool truthy(const Json* value) {
    return value != nullptr && truthy(*value);
}
inline bool truthy(const std::optional<Json>& value) {
    return value && truthy(*value);
}

// The member `key` of `object`, or nullptr when it is missing. Throws TypeError when `object`
// is not an object, which is how a member read from a list or a text must fail.
const Json* member(const Json& object, std::string_view key);

// Text as it stands; other values as plain_text() of a message writes them: integers in
// decimal, other numbers as format_double(), True/False/None, lists and objects in a
// bracketed form ("[1, 'a']", "{'k': None}").
std::string plain_text(const Json& value);

// Name of the value's kind as the debug log reports it: list, str, int, float, bool, NoneType,
// dict.
const char* type_name(const Json& value);

}  // namespace support
