// The hooks' host is this very program when PATH leads to its own file: the child is then forked
// and entered rather than executed again. Either way the answer must be the same.
#include "harness.hpp"

namespace e2e {
namespace {

TEST_F(HookTest, AHostThatIsThisProgramAnswersForkedAsExecuted) {
    write_file(repo_ / "a.py", "x = 1\n");
    RunOptions host;
    host.real_host = true;
    ASSERT_EQ(run({"query", "understand", "--action=store", "--target=a.py"}, host).status, 0);

    // A copy is another file: it is executed.
    const fs::path copies = root_ / "copies";
    fs::create_directories(copies);
    fs::copy_file(binary(), copies / fs::path(binary()).filename());
    const std::string rest = ":/usr/local/bin:/usr/bin:/bin";
    for (const std::string& path :
         {fs::path(binary()).parent_path().string() + rest, copies.string() + rest}) {
        SCOPED_TRACE(path);
        RunOptions options;
        options.env["PATH"] = path;
        options.stdin_data = input_with_path("claude", native(repo_ / "a.py"));
        const HookRun r = run({"hooks", "check-cache"}, options);
        EXPECT_EQ(r.out,
                  R"({"hookSpecificOutput": {"hookEventName": "PreToolUse", "additionalContext": )"
                  R"("Cached understanding exists for `a.py` \u2014 consider `understand(action=)"
                  R"(\"recall\", target=\"a.py\")` before reading the full file (saves tokens)."}})"
                  "\n");
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 0);
    }
}

}  // namespace
}  // namespace e2e
