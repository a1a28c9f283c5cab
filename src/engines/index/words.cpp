#include "engines/index/words.hpp"

#include <algorithm>

namespace code_index {

namespace {

bool is_upper(char c) {
    return c >= 'A' && c <= 'Z';
}
bool is_lower(char c) {
    return c >= 'a' && c <= 'z';
}
bool is_digit(char c) {
    return c >= '0' && c <= '9';
}
bool is_word(char c) {
    return is_upper(c) || is_lower(c) || is_digit(c) || static_cast<unsigned char>(c) >= 0x80;
}

}  // namespace

std::string fold_case(std::string_view name) {
    std::string folded(name);
    for (char& c : folded) {
        if (is_upper(c)) c = static_cast<char>(c - 'A' + 'a');
    }
    return folded;
}

std::vector<std::string> name_words(std::string_view name) {
    std::vector<std::string> words;
    std::string word;
    auto finish = [&] {
        if (!word.empty() && std::find(words.begin(), words.end(), word) == words.end()) {
            words.push_back(word);
        }
        word.clear();
    };
    for (std::size_t i = 0; i < name.size(); ++i) {
        const char c = name[i];
        if (!is_word(c)) {
            finish();
            continue;
        }
        if (is_upper(c) && !word.empty()) {
            const char before = name[i - 1];
            const bool next_lower = i + 1 < name.size() && is_lower(name[i + 1]);
            // getUser: a capital after a small letter or digit starts a word; HTTPServer: so does
            // the last capital of a run that a small letter follows.
            if (is_lower(before) || is_digit(before) || (is_upper(before) && next_lower)) finish();
        }
        word += is_upper(c) ? static_cast<char>(c - 'A' + 'a') : c;
    }
    finish();
    return words;
}

}  // namespace code_index
