#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace code_index {

// The words of an identifier, lower-cased, in order, each once: getUser and get_user give
// {get, user}, HTTPServer {http, server}, utf8Decode {utf8, decode}. Characters other than ASCII
// letters, digits and bytes of non-ASCII characters separate words.
std::vector<std::string> name_words(std::string_view name);

// ASCII lower case: how the index compares names when case does not matter.
std::string fold_case(std::string_view name);

}  // namespace code_index
