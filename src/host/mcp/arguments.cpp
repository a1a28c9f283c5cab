#include "host/mcp/arguments.hpp"

#include "host/mcp/jsonrpc.hpp"

namespace host::mcp {

using support::Json;

Arguments::Arguments(std::string_view tool, const Json& arguments,
                     std::initializer_list<std::string_view> known)
    : tool_(tool), arguments_(arguments) {
    for (const auto& [name, value] : arguments.members()) {
        bool ok = false;
        for (std::string_view k : known) ok = ok || k == name;
        // A misspelt argument would otherwise be dropped without a word.
        if (!ok) fail("unknown argument \"" + name + "\"");
    }
}

void Arguments::fail(std::string_view what) const {
    throw RpcError(RpcCode::invalid_params,
                   "Invalid arguments for " + tool_ + ": " + std::string(what));
}

const Json* Arguments::get(std::string_view name) const {
    const Json* value = arguments_.find(name);
    return value == nullptr || value->is_null() ? nullptr : value;
}

std::optional<std::string> Arguments::text(std::string_view name) const {
    const Json* value = get(name);
    if (value == nullptr) return std::nullopt;
    if (!value->is_string()) fail("\"" + std::string(name) + "\" must be a string");
    return value->as_string();
}

std::string Arguments::required_text(std::string_view name, std::string_view needed_for) const {
    auto value = text(name);
    if (!value || value->empty()) {
        fail(std::string(needed_for) + " needs \"" + std::string(name) + "\"");
    }
    return *value;
}

std::optional<std::string> Arguments::choice(
    std::string_view name, std::initializer_list<std::string_view> allowed) const {
    auto value = text(name);
    if (!value) return std::nullopt;
    std::string list;
    for (std::string_view option : allowed) {
        if (*value == option) return value;
        list += (list.empty() ? "\"" : ", \"") + std::string(option) + "\"";
    }
    fail("\"" + std::string(name) + "\" must be one of " + list);
}

std::vector<std::string> Arguments::texts(std::string_view name) const {
    const Json* value = get(name);
    if (value == nullptr) return {};
    const std::string must = "\"" + std::string(name) + "\" must be a list of strings";
    if (!value->is_array()) fail(must);
    std::vector<std::string> out;
    for (const Json& item : value->elements()) {
        if (!item.is_string()) fail(must);
        out.push_back(item.as_string());
    }
    return out;
}

std::optional<long long> Arguments::integer(std::string_view name, long long min,
                                            long long max) const {
    const Json* value = get(name);
    if (value == nullptr) return std::nullopt;
    const auto number = value->is_number() ? value->as_int64() : std::nullopt;
    if (!number || *number < min || *number > max) {
        fail("\"" + std::string(name) + "\" must be a whole number from " + std::to_string(min) +
             " to " + std::to_string(max));
    }
    return number;
}

}  // namespace host::mcp
