#pragma once

#include <nlohmann/json.hpp>

namespace support {

// Members keep their input order; a repeated key keeps its first position and its last value.
using Json = nlohmann::ordered_json;

}  // namespace support
