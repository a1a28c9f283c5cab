#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "host/install/agents.hpp"
#include "support/json.hpp"

namespace host::install {

// A configuration whose shape leaves no safe place for our entries. The message is what follows
// the file's name ("has \"hooks\" that is not an object").
class ConfigError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// What follows "hooks" when `command` runs orvane-tamblo's hooks command (the program given by
// any path, quoted or not), with blanks between words made single; nullopt for anything else.
std::optional<std::string> hooks_invocation(std::string_view command);

struct HookCounts {
    int added = 0;
    int updated = 0;
    int removed = 0;
};

// `doc` with every hook of `agent` present once, each running `program_word`: an entry of ours
// that is already there keeps its place and gets the current program; a missing one is added at
// the end of its event's list. Everything else stays as it was, in its order.
support::Json add_hooks(const support::Json& doc, const AgentSpec& agent,
                        std::string_view program_word, HookCounts& counts);

// `doc` without the entries `add_hooks` puts there (and without lists and groups that removing
// them left empty); everything else as it was.
support::Json remove_hooks(const support::Json& doc, const AgentSpec& agent, HookCounts& counts);

// Whether any command in a hook file of any shape runs orvane-tamblo's hooks.
bool runs_our_hooks(const support::Json& doc);

// `doc` with our server registered as {"command": program, "args": ["mcp"]} under the servers
// key; other members of an existing entry of ours are kept. Sets `changed`.
support::Json add_mcp_server(const support::Json& doc, std::string_view program, bool& changed);
support::Json remove_mcp_server(const support::Json& doc, bool& changed);
bool has_mcp_server(const support::Json& doc);

// `doc` without empty hook lists, an empty "hooks" and an empty server list: what decides
// whether taking our entries out gave the user's file back.
support::Json without_empty_parts(const support::Json& doc);

}  // namespace host::install
