#pragma once

// Everything JSON now lives in support/json.hpp; this header stays for code that includes it.
#include "support/json.hpp"
