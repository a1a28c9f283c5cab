#include <gtest/gtest.h>

#include <string>

#include "engines/index/ignore_rules.hpp"

namespace {

// One pattern file, one path: 'x' left out, 'i' taken back in, '.' when no pattern matches.
struct Case {
    const char* rules;
    const char* path;
    bool directory;
    char expected;
};

void check(const Case& c, bool fold_case) {
    const code_index::IgnoreList list(c.rules, fold_case);
    const auto decision = list.decide(c.path, c.directory);
    const char got = !decision ? '.' : *decision ? 'x' : 'i';
    EXPECT_EQ(got, c.expected) << "rules \"" << c.rules << "\", path " << c.path
                               << (c.directory ? "/" : "");
}

TEST(IgnoreList, DocumentedExamples) {
    const Case cases[] = {
        {"hello.*", "a/hello.java", false, 'x'},  // no slash: any level
        {"/hello.*", "hello.c", false, 'x'},
        {"/hello.*", "a/hello.java", false, '.'},
        {"foo/", "foo", true, 'x'},
        {"foo/", "a/foo", true, 'x'},
        {"foo/", "foo", false, '.'},  // directories only
        {"doc/frotz/", "doc/frotz", true, 'x'},
        {"doc/frotz/", "a/doc/frotz", true, '.'},  // a middle slash anchors
        {"/doc/frotz", "doc/frotz", false, 'x'},
        {"foo/*", "foo/bar", true, 'x'},
        {"foo/*", "foo/bar/hello.c", false, '.'},  // "*" stops at "/"
        {"**/foo", "foo", false, 'x'},
        {"**/foo/bar", "x/y/foo/bar", false, 'x'},
        {"abc/**", "abc/x/y", false, 'x'},
        {"abc/**", "abc", true, '.'},  // what is inside, not the directory itself
        {"a/**/b", "a/b", false, 'x'},
        {"a/**/b", "a/x/y/b", false, 'x'},
        {"a/**/b", "a/xb", false, '.'},
        {"*.html\n!foo.html", "foo.html", false, 'i'},
        {"*.html\n!foo.html", "doc/x.html", false, 'x'},
        {"x\n!x\nx", "x", false, 'x'},  // the last match decides
    };
    for (const Case& c : cases) check(c, false);
}

TEST(IgnoreList, LinesEscapesAndClasses) {
    const Case cases[] = {
        {"\n# foo\n  \n", "foo", false, '.'},
        {"foo  ", "foo", false, 'x'},  // trailing spaces dropped
        {"foo\\ ", "foo ", false, 'x'},
        {"foo\\ ", "foo", false, '.'},
        {"foo\t", "foo", false, '.'},  // only spaces are dropped
        {"foo\r\nbar", "foo", false, 'x'},
        {"\xEF\xBB\xBF"
         "foo",
         "foo", false, 'x'},
        {"\\#foo", "#foo", false, 'x'},
        {"\\!foo", "!foo", false, 'x'},
        {"fo\\o\\*", "foo*", false, 'x'},
        {"foo\\*", "foox", false, '.'},
        {"foo\\", "foo", false, '.'},  // a final lone backslash matches nothing
        {"x/a?b", "x/a/b", false, '.'},
        {"a**b", "a/b", false, '.'},  // not around slashes, "**" is a "*"
        {"a**b", "axyb", false, 'x'},
        {"***/abc", "d/e/abc", false, 'x'},
        {"[!a]b", "ab", false, '.'},
        {"[^a]b", "cb", false, 'x'},
        {"[a-c]z", "bz", false, 'x'},
        {"[]x]y", "]y", false, 'x'},
        {"[a\\]]y", "]y", false, 'x'},
        {"[[:digit:]x]", "7", false, 'x'},
        {"[[:nope:]]", "n", false, '.'},
        {"[ab", "[ab", false, '.'},  // an unclosed class matches nothing
        {"x/[!/]y", "x/zy", false, 'x'},
        {"t\\/a", "t/a", false, 'x'},
    };
    for (const Case& c : cases) check(c, false);
}

// Windows compares names as its file system does.
TEST(IgnoreList, FoldedCase) {
    const Case cases[] = {
        {"*.LOG", "a/x.log", false, 'x'},
        {"/Build/", "build", true, 'x'},
        {"[A-C]x", "bX", false, 'x'},
        {"[[:upper:]]", "q", false, 'x'},
    };
    for (const Case& c : cases) {
        check(c, true);
        check({c.rules, c.path, c.directory, '.'}, false);
    }
}

}  // namespace
