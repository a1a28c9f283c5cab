#include <gtest/gtest.h>

#include <random>
#include <string>

#include "support/byte_scan.hpp"
#include "support/utf8.hpp"

// The word-at-a-time scans against the plain byte loops they replace, over texts made of the
// bytes each must tell apart, at every length and alignment around the eight-byte words.
TEST(ByteScan, AgreesWithByteByByteLoops) {
    const std::string alphabet = std::string("a~ \x1f\x7f\"\\\x80\xc3\xa9", 10) + '\0';
    std::mt19937 random(7);
    for (int round = 0; round < 20000; ++round) {
        std::string text(random() % 40, 'x');
        for (char& c : text) {
            if (random() % 3 == 0) c = alphabet[random() % alphabet.size()];
        }
        SCOPED_TRACE(testing::PrintToString(text));
        for (const bool delete_is_plain : {false, true}) {
            std::size_t expected = 0;
            while (expected < text.size()) {
                const auto c = static_cast<unsigned char>(text[expected]);
                if (c < 0x20 || c > 0x7F || c == '"' || c == '\\') break;
                if (c == 0x7F && !delete_is_plain) break;
                ++expected;
            }
            const char* begin = text.data();
            EXPECT_EQ(support::byte_scan::end_of_plain_ascii(begin, begin + text.size(),
                                                             delete_is_plain) -
                          begin,
                      static_cast<std::ptrdiff_t>(expected));
        }
        const std::size_t limit = random() % 45;
        std::size_t seen = 0, cut = text.size();
        for (std::size_t i = 0; i < text.size(); ++i) {
            if ((static_cast<unsigned char>(text[i]) & 0xC0) == 0x80) continue;
            if (seen++ == limit) {
                cut = i;
                break;
            }
        }
        EXPECT_EQ(support::cut_code_points(text, limit), text.substr(0, cut));
    }
}
