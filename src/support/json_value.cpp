#include <charconv>
#include <cmath>
#include <functional>
#include <limits>

#include "support/json.hpp"

namespace support {

namespace {

// Objects up to this size are searched member by member; larger ones get a hash index.
constexpr std::size_t kLinearSearchLimit = 8;

std::size_t hash_key(std::string_view key) {
    return std::hash<std::string_view>{}(key);
}

TypeError wrong_kind(const char* wanted, const Json& value) {
    return TypeError(std::string("expected ") + wanted + ", not '" + type_name(value) + "'");
}

// Digits of an integer, or a literal beyond the double range, as a double: out of range is
// infinity of the literal's sign.
double literal_to_double(const std::string& literal) {
    double value = 0;
    const auto [ptr, ec] = std::from_chars(literal.data(), literal.data() + literal.size(), value);
    if (ec == std::errc()) return value;
    const double inf = std::numeric_limits<double>::infinity();
    return literal.front() == '-' ? -inf : inf;
}

void append_python_string(std::string& out, const std::string& s) {
    static constexpr char hex[] = "0123456789abcdef";
    const bool has_single = s.find('\'') != std::string::npos;
    const bool has_double = s.find('"') != std::string::npos;
    const char quote = (has_single && !has_double) ? '"' : '\'';
    out += quote;
    for (std::size_t i = 0; i < s.size(); ++i) {
        const char c = s[i];
        const auto u = static_cast<unsigned char>(c);
        if (c == quote || c == '\\') {
            out += '\\';
            out += c;
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\r') {
            out += "\\r";
        } else if (c == '\t') {
            out += "\\t";
        } else if (u < 0x20 || u == 0x7F) {
            out += "\\x";
            out += hex[u >> 4];
            out += hex[u & 0xF];
        } else if (u == 0xED && i + 2 < s.size() && static_cast<unsigned char>(s[i + 1]) >= 0xA0) {
            // A lone surrogate: escaped, so that the text stays valid UTF-8.
            const unsigned unit = 0xD000 | ((static_cast<unsigned char>(s[i + 1]) & 0x3F) << 6) |
                                  (static_cast<unsigned char>(s[i + 2]) & 0x3F);
            out += "\\u";
            for (int shift = 12; shift >= 0; shift -= 4) out += hex[(unit >> shift) & 0xF];
            i += 2;
        } else {
            out += c;
        }
    }
    out += quote;
}

void append_repr(std::string& out, const Json& value, std::size_t depth) {
    if (depth > kMaxJsonDepth) throw JsonDepthError("JSON value nested too deeply to show");
    if (value.is_string()) {
        append_python_string(out, value.as_string());
    } else if (value.is_array()) {
        out += '[';
        bool first = true;
        for (const Json& item : value.elements()) {
            if (!first) out += ", ";
            first = false;
            append_repr(out, item, depth + 1);
        }
        out += ']';
    } else if (value.is_object()) {
        out += '{';
        bool first = true;
        for (const auto& [key, item] : value.members()) {
            if (!first) out += ", ";
            first = false;
            append_python_string(out, key);
            out += ": ";
            append_repr(out, item, depth + 1);
        }
        out += '}';
    } else {
        out += plain_text(value);
    }
}

}  // namespace

Json::ObjectBody::ObjectBody(const ObjectBody& other)
    : members(other.members),
      slots(other.slots ? std::make_unique<std::vector<std::uint32_t>>(*other.slots) : nullptr) {}

Json::ObjectBody& Json::ObjectBody::operator=(const ObjectBody& other) {
    if (this != &other) *this = ObjectBody(other);
    return *this;
}

std::size_t Json::ObjectBody::position(std::string_view key) const {
    if (!slots) {
        for (std::size_t i = 0; i < members.size(); ++i) {
            if (members[i].first == key) return i;
        }
        return members.size();
    }
    const std::size_t mask = slots->size() - 1;
    for (std::size_t s = hash_key(key) & mask;; s = (s + 1) & mask) {
        const std::uint32_t slot = (*slots)[s];
        if (slot == 0) return members.size();
        if (members[slot - 1].first == key) return slot - 1;
    }
}

void Json::ObjectBody::put(std::string key, Json value) {
    const std::size_t pos = position(key);
    if (pos < members.size()) {
        members[pos].second = std::move(value);
        return;
    }
    members.emplace_back(std::move(key), std::move(value));
    if (slots) {
        index(pos);
    } else if (members.size() > kLinearSearchLimit) {
        rehash();
    }
}

void Json::ObjectBody::index(std::size_t pos) {
    if (members.size() * 2 > slots->size()) {
        rehash();
        return;
    }
    const std::size_t mask = slots->size() - 1;
    std::size_t s = hash_key(members[pos].first) & mask;
    while ((*slots)[s] != 0) s = (s + 1) & mask;
    (*slots)[s] = static_cast<std::uint32_t>(pos + 1);
}

void Json::ObjectBody::rehash() {
    std::size_t capacity = 32;
    while (capacity < members.size() * 4) capacity *= 2;
    slots = std::make_unique<std::vector<std::uint32_t>>(capacity, 0);
    const std::size_t mask = capacity - 1;
    for (std::size_t pos = 0; pos < members.size(); ++pos) {
        std::size_t s = hash_key(members[pos].first) & mask;
        while ((*slots)[s] != 0) s = (s + 1) & mask;
        (*slots)[s] = static_cast<std::uint32_t>(pos + 1);
    }
}

Json Json::array(Array items) {
    Json value;
    value.value_ = std::move(items);
    return value;
}

Json Json::object() {
    Json value;
    value.value_.emplace<kObject>();
    return value;
}

Json::Type Json::type() const {
    switch (value_.index()) {
        case kNull:
            return Type::null;
        case kBool:
            return Type::boolean;
        case kString:
            return Type::string;
        case kArray:
            return Type::array;
        case kObject:
            return Type::object;
        default:
            return Type::number;
    }
}

bool Json::is_number() const {
    return type() == Type::number;
}

bool Json::as_bool() const {
    if (!is_bool()) throw wrong_kind("a bool", *this);
    return std::get<kBool>(value_);
}

double Json::as_double() const {
    if (const auto* i = integer()) return literal_to_double(i->digits);
    if (const auto* r = real()) return *r;
    if (const auto* b = big_real()) return literal_to_double(b->literal);
    throw wrong_kind("a number", *this);
}

std::optional<long long> Json::as_int64() const {
    if (!is_number()) throw wrong_kind("a number", *this);
    const auto* i = integer();
    if (i == nullptr) return std::nullopt;
    long long value = 0;
    const char* end = i->digits.data() + i->digits.size();
    const auto [ptr, ec] = std::from_chars(i->digits.data(), end, value);
    if (ec != std::errc() || ptr != end) return std::nullopt;
    return value;
}

const std::string& Json::as_string() const {
    if (!is_string()) throw wrong_kind("a str", *this);
    return std::get<kString>(value_);
}

std::size_t Json::size() const {
    if (is_array()) return std::get<kArray>(value_).size();
    return object_body().members.size();
}

const Json::Array& Json::elements() const {
    if (!is_array()) throw wrong_kind("a list", *this);
    return std::get<kArray>(value_);
}

Json::Array& Json::elements() {
    if (!is_array()) throw wrong_kind("a list", *this);
    return std::get<kArray>(value_);
}

const Json& Json::operator[](std::size_t index) const {
    return elements().at(index);
}

void Json::push_back(Json value) {
    elements().push_back(std::move(value));
}

const Json::ObjectBody& Json::object_body() const {
    if (!is_object()) throw wrong_kind("a dict", *this);
    return std::get<kObject>(value_);
}

const Json::Object& Json::members() const {
    return object_body().members;
}

const Json* Json::find(std::string_view key) const {
    const ObjectBody& body = object_body();
    const std::size_t pos = body.position(key);
    return pos < body.members.size() ? &body.members[pos].second : nullptr;
}

Json& Json::set(std::string key, Json value) {
    object_body();  // the kind check
    std::get<kObject>(value_).put(std::move(key), std::move(value));
    return *this;
}

bool operator==(const Json& a, const Json& b) {
    if (a.is_number() && b.is_number()) {
        if (a.integer() && b.integer()) return a.integer()->digits == b.integer()->digits;
        if (a.big_real() && b.big_real()) return a.big_real()->literal == b.big_real()->literal;
        return a.as_double() == b.as_double();
    }
    if (a.value_.index() != b.value_.index()) return false;
    switch (a.value_.index()) {
        case Json::kNull:
            return true;
        case Json::kBool:
            return a.as_bool() == b.as_bool();
        case Json::kString:
            return a.as_string() == b.as_string();
        case Json::kArray:
            return a.elements() == b.elements();
        default:
            return a.members() == b.members();
    }
}

bool truthy(const Json& value) {
    switch (value.type()) {
        case Json::Type::null:
            return false;
        case Json::Type::boolean:
            return value.as_bool();
        case Json::Type::number:
            if (const auto* i = value.integer()) return i->digits != "0";
            if (const double* r = value.real()) return *r != 0.0;
            return true;  // beyond the double range, so far from zero
        case Json::Type::string:
            return !value.as_string().empty();
        default:
            return !value.empty();
    }
}

const Json* member(const Json& object, std::string_view key) {
    if (!object.is_object()) {
        throw TypeError("'" + std::string(type_name(object)) + "' object has no member '" +
                        std::string(key) + "'");
    }
    return object.find(key);
}

std::string plain_text(const Json& value) {
    switch (value.type()) {
        case Json::Type::string:
            return value.as_string();
        case Json::Type::null:
            return "None";
        case Json::Type::boolean:
            return value.as_bool() ? "True" : "False";
        case Json::Type::number:
            if (const auto* i = value.integer()) return i->digits;
            if (const double* r = value.real()) return format_double(*r);
            return value.big_real()->literal;
        default: {
            std::string out;
            append_repr(out, value, 0);
            return out;
        }
    }
}

const char* type_name(const Json& value) {
    switch (value.type()) {
        case Json::Type::null:
            return "NoneType";
        case Json::Type::boolean:
            return "bool";
        case Json::Type::number:
            return value.is_integer() ? "int" : "float";
        case Json::Type::string:
            return "str";
        case Json::Type::array:
            return "list";
        default:
            return "dict";
    }
}

}  // namespace support
