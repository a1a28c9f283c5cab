// The MCP server driven by the reference client over stdio, as an agent would drive it: the five
// tools, each call of the code index's tools that the hooks' texts show, sent as written, and the
// index kept current while the server runs; then the check-cache hook sees what the server stored.
// `orvane-tamblo` must be the build, first on PATH.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { mkdirSync, mkdtempSync, realpathSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";

let Client, StdioClientTransport;
try {
  ({ Client } = await import("@modelcontextprotocol/sdk/client/index.js"));
  ({ StdioClientTransport } = await import("@modelcontextprotocol/sdk/client/stdio.js"));
} catch {
  console.log("skipped: the MCP SDK is not installed (run `npm ci` in tests/mcp)");
  process.exit(77);
}

const work = realpathSync(mkdtempSync(join(tmpdir(), "orvane-mcp-")));
const repo = join(work, "repo");
mkdirSync(join(repo, "src"), { recursive: true });
mkdirSync(join(repo, ".git"));
mkdirSync(join(repo, "build"));
writeFileSync(join(repo, ".gitignore"), "build/\n");
writeFileSync(join(repo, "src", "app.py"), "def main(): ...\n\nif __name__ == \"__main__\":\n    main()\n");
const env = { ...process.env, ORVANE_TAMBLO_LOG_DIR: work };

const text = (result) => {
  assert.equal(result.isError, undefined, JSON.stringify(result));
  assert.equal(result.content.length, 1);
  assert.equal(result.content[0].type, "text");
  return result.content[0].text;
};

try {
  const client = new Client({ name: "orvane-tamblo-test", version: "1.0.0" });
  await client.connect(
    new StdioClientTransport({ command: "orvane-tamblo", args: ["mcp"], cwd: repo, env }));
  assert.equal(client.getServerVersion().name, "orvane-tamblo");

  const { tools } = await client.listTools();
  assert.deepEqual(tools.map((t) => t.name), ["understand", "remember", "search", "symbol", "explore"]);
  for (const tool of tools) assert.equal(tool.inputSchema.type, "object");

  const call = async (name, args) => text(await client.callTool({ name, arguments: args }));
  // The index is built and kept in the background: ask until the answer is the expected one.
  const soon = async (name, args, expected) => {
    let answer;
    for (const deadline = Date.now() + 30000; Date.now() < deadline;) {
      if ((answer = await call(name, args)) === expected) break;
      await new Promise((resolve) => setTimeout(resolve, 50));
    }
    assert.equal(answer, expected);
  };
  const search = (query) => ({ action: "symbols", query });

  await soon("search", search("main"),
    "1 definition matches \"main\", best first:\nsrc/app.py:1 function main \u2014 def main()");

  // Every call of these tools in what the hooks print, sent as written: `symbol(action="callers"/
  // "references")` is two calls, `query=...` the text "...".
  const context = (hook, input) => JSON.parse(execFileSync("orvane-tamblo", ["hooks", hook],
    { cwd: repo, env, input: JSON.stringify(input) })).hookSpecificOutput.additionalContext;
  const texts = context("suggest-tamblo", { tool_name: "Grep", tool_input: { pattern: "main" } }) +
    context("session-start", { source: "startup" });
  const calls = [];
  for (const [, name, written] of texts.matchAll(/`(search|symbol|explore)\(([^`]*)\)`/g)) {
    let each = [{}];
    for (const [, key, value] of written.matchAll(/(\w+)=("[^"]*"(?:\/"[^"]*")*|'[^']*'|\.\.\.)/g)) {
      const choices = value === "..." ? ["..."] : value.slice(1, -1).split(/["']\/["']/);
      each = each.flatMap((args) => choices.map((choice) => ({ ...args, [key]: choice })));
    }
    for (const args of each) {
      if (!calls.some((c) => JSON.stringify(c) === JSON.stringify([name, args]))) calls.push([name, args]);
    }
  }
  const answers = [];
  for (const [name, args] of calls) answers.push([name, args, await call(name, args)]);
  assert.deepEqual(answers, [
    ["search", { action: "symbols", query: "main" },
      "1 definition matches \"main\", best first:\nsrc/app.py:1 function main \u2014 def main()"],
    ["symbol", { action: "callers" },
      "(No name given: \"main\", the best match of the last search.)\n1 caller of \"main\", most " +
        "calls first:\nsrc/app.py:4 top level (1 call)"],
    ["symbol", { action: "references" },
      "(No name given: \"main\", the best match of the last search.)\n1 reference to \"main\":\n" +
        "src/app.py:4 call"],
    ["explore", { query: "..." },
      "Nothing to look for in \"...\": give a name or a few words, as in explore(query=\"getUser\") " +
        "or explore(query=\"how sessions end\")."],
    ["search", { action: "symbols", query: "getUser" },
      "No definition matches \"getUser\". explore(query=\"getUser\") also looks at file paths and " +
        "the AI cache; Grep finds text."],
    ["symbol", { action: "definition", name: "..." },
      "Which name? symbol(action=\"definition\", name=\"getUser\") looks one up; " +
        "search(action=\"symbols\", query=\"...\") finds names first, and then symbol without a " +
        "name takes the best match."],
  ]);

  // A file saved while the server runs is found; one in an ignored directory is not.
  writeFileSync(join(repo, "build", "gen.py"), "def generated_page(): ...\n");
  writeFileSync(join(repo, "src", "page.py"), "def render_page(): ...\n");
  await soon("search", search("page"), "1 definition matches \"page\", best first:\n" +
    "src/page.py:1 function render_page \u2014 def render_page()");

  // Invalid arguments are protocol errors naming the argument.
  for (const [name, args, message] of [
    ["understand", { action: "recall", target: 5 }, "\"target\" must be a string"],
    ["remember", { action: "store", key: "k" }, "action \"store\" needs \"value\""],
    ["search", { action: "symbols", query: "x", limit: 500 }, "\"limit\" must be a whole number"],
    ["symbol", { action: "callers", name: ["x"] }, "\"name\" must be a string"],
    ["explore", {}, "\"query\" is required"],
  ]) {
    await assert.rejects(client.callTool({ name, arguments: args }), (e) =>
      e.code === -32602 && e.message.includes(`Invalid arguments for ${name}: ${message}`));
  }

  assert.equal(
    await call("understand", {
      action: "store", scope: "file", target: "src/app.py",
      purpose: "Entry point of the paging service",
      key_points: ["main() starts the server"], gotchas: ["PORT comes from the environment"],
      importance: "high",
    }),
    "Stored the understanding of src/app.py (file, importance high). Later sessions are " +
      "pointed to it before they read the file.");

  assert.equal(
    await call("understand", { action: "recall", target: "src/app.py" }),
    "src/app.py (file, importance high): fresh, the file has not changed since this was " +
      "stored.\nPurpose: Entry point of the paging service\nKey points:\n- main() starts the " +
      "server\nGotchas:\n- PORT comes from the environment");

  assert.equal(
    await call("understand", { action: "recall", query: "paging" }),
    "1 match for \"paging\", best first:\n\n1. src/app.py (file, importance high)\nPurpose: " +
      "Entry point of the paging service\nKey points:\n- main() starts the server\nGotchas:\n" +
      "- PORT comes from the environment");

  // The server keeps its store open: an entry another process stores (twice) meanwhile is found
  // by the next search, and the list comes a page at a time, the latest first.
  for (const importance of ["high", "low"]) {
    execFileSync("orvane-tamblo", ["query", "understand", "--action=store", "--target=src/db.py",
      "--purpose=Paging queries", `--importance=${importance}`], { cwd: repo, env });
  }
  assert.equal(
    await call("understand", { action: "recall", query: "paging queries" }),
    "2 matches for \"paging queries\", best first:\n\n1. src/db.py (file, importance low)\n" +
      "Purpose: Paging queries\n\n2. src/app.py (file, importance high)\nPurpose: " +
      "Entry point of the paging service\nKey points:\n- main() starts the server\nGotchas:\n" +
      "- PORT comes from the environment");
  assert.equal(await call("understand", { action: "list", limit: 1 }),
    "2 cached understandings, the most recently stored first (1-1 shown):\n" +
      "- [low] src/db.py (file)\nMore: understand(action=\"list\", offset=1).");
  assert.equal(await call("understand", { action: "list", limit: 1, offset: 1 }),
    "2 cached understandings, the most recently stored first (2-2 shown):\n" +
      "- [high] src/app.py (file)");

  assert.equal(
    await call("remember", { action: "store", key: "decision/storage", value: "SQLite in the repo" }),
    "Remembered \"decision/storage\".");
  assert.equal(await call("remember", { action: "list" }),
    "1 memory:\n- \"decision/storage\": SQLite in the repo");
  assert.equal(await call("explore", { query: "paging storage" }),
    "Cached understandings (understand(action=\"recall\", target=...) gives one whole):\n" +
      "src/db.py (file): Paging queries\nsrc/app.py (file): Entry point of the paging " +
      "service\nMemories:\n\"decision/storage\": SQLite in the repo");

  await client.close();

  // What the server stored is what the hook finds before the agent reads the file.
  const hint = execFileSync("orvane-tamblo", ["hooks", "check-cache"], {
    cwd: repo, env,
    input: JSON.stringify({ tool_name: "Read", tool_input: { file_path: join(repo, "src/app.py") } }),
  }).toString();
  assert.equal(hint,
    '{"hookSpecificOutput": {"hookEventName": "PreToolUse", "additionalContext": "Cached ' +
      "understanding exists for `src/app.py` \\u2014 consider `understand(action=\\\"recall\\\", " +
      'target=\\"src/app.py\\")` before reading the full file (saves tokens)."}}\n');
  console.log("ok: initialize, tools/list, the hooks' calls, an edit found, invalid arguments, " +
    "understand store, recall, search and list, remember, explore, check-cache");
} finally {
  rmSync(work, { recursive: true, force: true });
}
