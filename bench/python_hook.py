#!/usr/bin/env python3
"""save-compact written the usual way in Python, for the benchmark's comparison row: the same
input, the same answer, the imports such a hook has (its argument parser, JSON, subprocess)."""
import argparse
import json
import subprocess  # noqa: F401  (a hook that asks its host imports it; this one does not run it)
import sys


def main():
    parser = argparse.ArgumentParser(prog="hook")
    parser.add_argument("hook")
    parser.add_argument("--agent", default="claude")
    parser.parse_args()
    json.loads(sys.stdin.read() or "{}")
    message = (
        "## Context Compaction Imminent\n\nBefore context is reduced, persist important insights:\n"
        "- `understand(action='store')` for file/module analysis\n"
        "- `remember(action='store', key='...', value='...')` for decisions and insights"
    )
    sys.stdout.write(json.dumps({"systemMessage": message}) + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
