#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/json.hpp"

namespace host::mcp {

// A tool's arguments, read with the checks of its input schema: a missing or mistyped argument,
// or one the tool does not know, throws RpcError (invalid params) naming it. A null counts as
// missing: clients send it for arguments left out.
class Arguments {
  public:
    Arguments(std::string_view tool, const support::Json& arguments,
              std::initializer_list<std::string_view> known);

    std::optional<std::string> text(std::string_view name) const;
    // Present and not empty.
    std::string required_text(std::string_view name, std::string_view needed_for) const;
    // One of `allowed`.
    std::optional<std::string> choice(std::string_view name,
                                      std::initializer_list<std::string_view> allowed) const;
    std::vector<std::string> texts(std::string_view name) const;
    std::optional<long long> integer(std::string_view name, long long min, long long max) const;

  private:
    const support::Json* get(std::string_view name) const;
    [[noreturn]] void fail(std::string_view what) const;

    std::string tool_;
    const support::Json& arguments_;
};

}  // namespace host::mcp
