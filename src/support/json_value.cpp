#include "support/json_value.hpp"

#include "support/json_text.hpp"
#include "support/utf8.hpp"

namespace support {

namespace {

// The library's own DOM builder, with a depth count in front of it: the parser itself is
// iterative, so this is the only place a hostile document's depth can be bounded.
class DepthLimitedBuilder : public nlohmann::detail::json_sax_dom_parser<Json> {
    using Base = nlohmann::detail::json_sax_dom_parser<Json>;
    std::size_t depth_ = 0;

    void enter() {
        if (++depth_ > kMaxJsonDepth) {
            throw std::runtime_error("JSON document nested more than " +
                                     std::to_string(kMaxJsonDepth) + " levels deep");
        }
    }

  public:
    explicit DepthLimitedBuilder(Json& root) : Base(root, true) {}
    bool start_object(std::size_t n) {
        enter();
        return Base::start_object(n);
    }
    bool end_object() {
        --depth_;
        return Base::end_object();
    }
    bool start_array(std::size_t n) {
        enter();
        return Base::start_array(n);
    }
    bool end_array() {
        --depth_;
        return Base::end_array();
    }
};

void append_python_string(std::string& out, const std::string& s) {
    const bool has_single = s.find('\'') != std::string::npos;
    const bool has_double = s.find('"') != std::string::npos;
    const char quote = (has_single && !has_double) ? '"' : '\'';
    out += quote;
    for (const char c : s) {
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
            static constexpr char hex[] = "0123456789abcdef";
            out += "\\x";
            out += hex[u >> 4];
            out += hex[u & 0xF];
        } else {
            out += c;
        }
    }
    out += quote;
}

void append_repr(std::string& out, const Json& value, std::size_t depth) {
    if (depth > kMaxJsonDepth) throw std::runtime_error("JSON value nested too deeply to show");
    if (value.is_string()) {
        append_python_string(out, value.get_ref<const std::string&>());
    } else if (value.is_array()) {
        out += '[';
        bool first = true;
        for (const auto& item : value) {
            if (!first) out += ", ";
            first = false;
            append_repr(out, item, depth + 1);
        }
        out += ']';
    } else if (value.is_object()) {
        out += '{';
        bool first = true;
        for (const auto& [key, item] : value.items()) {
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

Json parse_json(std::string_view text) {
    // The library would skip a leading byte-order mark on its own; a document never starts with
    // one.
    if (text.starts_with("\xEF\xBB\xBF")) {
        throw JsonParseError("unexpected byte-order mark at the start of the JSON text");
    }
    if (auto error = utf8_error(text)) throw JsonParseError(*error);
    Json root;
    DepthLimitedBuilder builder(root);
    try {
        Json::sax_parse(text, &builder, nlohmann::detail::input_format_t::json, true);
    } catch (const nlohmann::json::exception& e) {
        throw JsonParseError(e.what());
    }
    return root;
}

bool truthy(const Json& value) {
    switch (value.type()) {
        case Json::value_t::null:
            return false;
        case Json::value_t::boolean:
            return value.get<bool>();
        case Json::value_t::number_integer:
            return value.get<std::int64_t>() != 0;
        case Json::value_t::number_unsigned:
            return value.get<std::uint64_t>() != 0;
        case Json::value_t::number_float:
            return value.get<double>() != 0.0;
        case Json::value_t::string:
            // The library's empty() is false for every string; the text's own length decides.
            return !value.get_ref<const std::string&>().empty();
        case Json::value_t::array:
        case Json::value_t::object:
            return !value.empty();
        default:
            return true;
    }
}

const Json* member(const Json& object, std::string_view key) {
    if (!object.is_object()) {
        throw TypeError("'" + std::string(type_name(object)) + "' object has no member '" +
                        std::string(key) + "'");
    }
    const auto it = object.find(key);
    return it == object.end() ? nullptr : &*it;
}

std::string plain_text(const Json& value) {
    switch (value.type()) {
        case Json::value_t::string:
            return value.get<std::string>();
        case Json::value_t::null:
            return "None";
        case Json::value_t::boolean:
            return value.get<bool>() ? "True" : "False";
        case Json::value_t::number_integer:
            return std::to_string(value.get<std::int64_t>());
        case Json::value_t::number_unsigned:
            return std::to_string(value.get<std::uint64_t>());
        case Json::value_t::number_float:
            return format_double(value.get<double>());
        default: {
            std::string out;
            append_repr(out, value, 0);
            return out;
        }
    }
}

const char* type_name(const Json& value) {
    switch (value.type()) {
        case Json::value_t::null:
            return "NoneType";
        case Json::value_t::boolean:
            return "bool";
        case Json::value_t::number_integer:
        case Json::value_t::number_unsigned:
            return "int";
        case Json::value_t::number_float:
            return "float";
        case Json::value_t::string:
            return "str";
        case Json::value_t::array:
            return "list";
        case Json::value_t::object:
            return "dict";
        default:
            return "binary";
    }
}

}  // namespace support
