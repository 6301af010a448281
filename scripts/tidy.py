"""Run clang-tidy over the sources of a compile database: tidy.py BUILD_FOLDER JOBS.

A source that passed is not looked at again until it, one of our headers that it includes, its
compile command or .clang-tidy changes.
"""

import concurrent.futures
import hashlib
import json
import re
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
SOURCES = ROOT / "src"
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"', re.MULTILINE)


def own_files(source):
    """The source and all of our headers that it reaches."""
    found, open_files = set(), [source]
    while open_files:
        path = open_files.pop()
        if path in found or not path.is_file():
            continue
        found.add(path)
        for name in INCLUDE.findall(path.read_text()):
            open_files += [SOURCES / name, path.parent / name]
    return sorted(found)


def digest(source, command):
    """What the outcome for this source depends on, as one number."""
    state = hashlib.sha256(command.encode())
    for path in [ROOT / ".clang-tidy", *own_files(source)]:
        state.update(path.read_bytes())
    return state.hexdigest()


def check(build, source):
    """Whether clang-tidy finds nothing; prints what it finds."""
    done = subprocess.run(
        ["clang-tidy", "-p", str(build), "--quiet", str(source)],
        capture_output=True,
        text=True,
        check=False,
    )
    if done.returncode != 0:
        print(done.stdout or done.stderr, flush=True)
    return done.returncode == 0


def main(build, jobs):
    passed_file = build / "tidy_passed.json"
    passed = json.loads(passed_file.read_text()) if passed_file.exists() else {}
    entries = json.loads((build / "compile_commands.json").read_text())
    commands = {Path(e["directory"], e["file"]).resolve(): e["command"] for e in entries}
    digests = {
        source: digest(source, command)
        for source, command in commands.items()
        if SOURCES in source.parents
    }
    if not digests:
        sys.exit("no source under src/ in the compile database")
    todo = [s for s in digests if passed.get(str(s)) != digests[s]]
    print(f"{len(todo)} of {len(digests)} sources to check", flush=True)

    failed = 0
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        for source, good in zip(todo, pool.map(lambda s: check(build, s), todo)):
            failed += not good
            if good:
                passed[str(source)] = digests[source]
    passed_file.write_text(json.dumps(passed))
    sys.exit(f"{failed} sources with findings" if failed else 0)


if __name__ == "__main__":
    main(Path(sys.argv[1]).resolve(), int(sys.argv[2]))
