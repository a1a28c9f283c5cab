#pragma once

#include <string>
#include <string_view>

// How replace_file_synced() names its temporary files, on every system: "<file>.tmp.<pid>.<n>.<m>",
// so that a later run can tell a killed run's leftovers from those of a run still going.
namespace platform::temporary_name {

inline constexpr std::string_view kInfix = ".tmp.";

std::string make(std::string_view file, unsigned long pid, unsigned long nonce, int attempt);

// The pid in what follows "<file>.tmp." in a temporary's name; -1 when it is not one of ours.
long pid_of(std::string_view rest);

}  // namespace platform::temporary_name
