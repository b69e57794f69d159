#!/usr/bin/env python3
"""Checks who includes whom, and a few rules about what public headers may contain. docs/architecture.md shows the map.

    check_layers.py                 checks the repository it stands in
    check_layers.py --write-all     writes Tessarin/Tessarin.h anew: every public header
    check_layers.py --self-test     shows that each rule bites
"""
import posixpath
import re
import sys
from pathlib import Path

# Each room of the platform includes itself and those before it.
PLATFORM = ["platform/" + room for room in (
    "runtime", "queues", "foundation/values", "foundation/processes", "foundation/geometry", "foundation/files", "foundation/text",
    "foundation/json", "foundation/time", "foundation/bundles", "foundation/predicates", "foundation/operations",
    "foundation/notifications", "foundation/preferences", "sqlite", "objectgraph/model", "objectgraph/query", "objectgraph/persistence", "objectgraph/context", "objectgraph/undo", "objectgraph/live")]
OBJECT_GRAPH = [room for room in PLATFORM if "objectgraph" in room]

ALLOWED = {room: set(PLATFORM[:at]) for at, room in enumerate(PLATFORM)} | {
    "dispatch": set(PLATFORM) - set(OBJECT_GRAPH),
    "collections": set(PLATFORM),
    "dates": set(PLATFORM),
    "defaults": set(PLATFORM),
    "geometry": set(PLATFORM),
    "keyaccess": set(PLATFORM),
    "text": set(PLATFORM),
    "notifications": {*PLATFORM, "dispatch", "collections"},
    "descriptions": {*PLATFORM, "keyaccess"},
    "state": {*PLATFORM, "dispatch", "collections", "notifications", "descriptions"},
    "store": {*PLATFORM, "dispatch", "collections", "notifications"},
    "measurement": {*PLATFORM, "dates"},
    "system": {*PLATFORM, "dispatch", "notifications"},
}
# Single files that may do more than their room.
ALLOWED_FILES = {"Tessarin/dispatch/DeferredIn": set(OBJECT_GRAPH)}

# Ordering above the platform is a queue's job, and a Cell's.
LOCK_HEADERS = re.compile(r"(mutex|shared_mutex|atomic|condition_variable)$")
LOCK_NAMES = re.compile(r"\bstd::(\w*mutex|atomic\w*|condition_variable\w*|lock_guard|unique_lock|scoped_lock|shared_lock|once_flag)\b")

THIRD_PARTY = re.compile(r"(sqlite3\.h|unicode/.*|simdjson\.h|pugixml\.hpp|toml\+\+/.*|toml\.hpp)$")
FMT_HEADER = "Tessarin/platform/runtime/Format.h"  # installed, but not part of ALL: {fmt} costs more than all the rest

# Each costs everybody who includes Tessarin.h, and can be left to .cpp files.
HEAVY = re.compile(r"(algorithm|chrono|condition_variable|deque|filesystem|format|functional|future|iostream|istream|list|locale|mutex|random"
                   r"|ranges|regex|sstream|thread)$")

# Toolkits define these as macros.
TOOLKIT_WORDS = re.compile(r"\b(emit|signals|slots|foreach)\b")

ALL = "Tessarin/Tessarin.h"
GENERATED = {"Tessarin/Version.h"}
COMMENT = re.compile(r'//[^\n]*|/\*.*?\*/|R"(?P<end>\w*)\(.*?\)(?P=end)"|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\'', re.S)
INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*([<"])([^>"\n]+)[>"]', re.M)


def without_comments(text, and_texts=False):
    """The text without comments, line breaks kept; on request without string literals too."""
    def blank(match):
        keep = not and_texts and not match[0].startswith("/")
        return match[0] if keep else "\n" * match[0].count("\n")
    return COMMENT.sub(blank, text)


def room_of(path):
    """'platform/objectgraph/model' for a file of that room, '' for one that stands directly in Tessarin/."""
    parts = path.split("/")[1:-1]
    depth = 1 if parts[:1] != ["platform"] else 3 if parts[1:2] in (["objectgraph"], ["foundation"]) else 2
    return "/".join(parts[:depth])


def is_header(path):
    return path.endswith((".h", ".inl"))


def is_installed(path):
    """Whether a file is a public header. cmake/Install.cmake leaves out the same ones."""
    inside = room_of(path) == "platform/sqlite" or "/engine/" in path or path.endswith("Private.h")
    return path.startswith("Tessarin/") and is_header(path) and not inside


def is_door(path, target):
    """A platform class's header names the rooms that extend it: NSDate.h includes "Tessarin/dates/NSDate+Ages.h"."""
    home = posixpath.basename(path).removesuffix(".h")
    return (path.startswith("Tessarin/platform/") and path.endswith(".h") and is_header(target)
            and posixpath.basename(target).startswith(home + "+"))


def own_include(path, target, tree):
    if target.startswith("Tessarin/integration/"):  # where it is installed
        return None if target.removeprefix("Tessarin/") in tree else "there is no such file"
    if target not in tree and target not in GENERATED:
        return "there is no such file"
    if not path.startswith("Tessarin/"):
        return None if is_installed(target) or target in GENERATED else "is not public"
    if is_installed(path) and is_header(target) and not is_installed(target) and target not in GENERATED:
        return "is not installed, but this header is"
    room, other = room_of(path), room_of(target)
    if path == ALL or not other or room == other or is_door(path, target):
        return None
    if room not in ALLOWED:
        return f"the room '{room}' is not in the table of cmake/check_layers.py"
    stem = re.split(r"[.+]", path)[0]
    if other in ALLOWED[room] | ALLOWED_FILES.get(stem, set()):
        return None
    return f"'{room}' may not include '{other}'"


def foreign_include(path, target):
    in_platform, is_source = path.startswith("Tessarin/platform/"), path.endswith(".cpp")
    if THIRD_PARTY.match(target) and not (in_platform and is_source):
        return "third-party headers belong into a .cpp file of platform/"
    if target.startswith("fmt/") and not is_source and path != FMT_HEADER:
        return f"fmt belongs into .cpp files and {FMT_HEADER}"
    if LOCK_HEADERS.match(target) and not in_platform:
        return "locks and atomics stay in platform/; use a queue or a Cell"
    if HEAVY.match(target) and is_installed(path):
        return "a heavy header of the standard library belongs into .cpp files"
    return None


def check_file(path, text, tree):
    code = without_comments(text)
    for quote, target in INCLUDE.findall(code):
        if target.startswith("Tessarin/"):
            problem = own_include(path, target, tree)
        elif quote == '"' and path.startswith("Tessarin/"):
            problem = 'an own header is included as "Tessarin/…"'
        else:
            problem = foreign_include(path, target) if path.startswith("Tessarin/") else None
        if problem:
            yield f"{path}: includes {target}: {problem}"
    bare = without_comments(text, and_texts=True)
    if path.startswith("Tessarin/") and not path.startswith("Tessarin/platform/"):
        for name in sorted(set(LOCK_NAMES.findall(bare))):
            yield f"{path}: uses std::{name}: locks and atomics stay in platform/"
    if is_installed(path) or path.startswith("integration/"):
        for word in sorted(set(TOOLKIT_WORDS.findall(bare))):
            yield f"{path}: uses the word '{word}', which toolkits define as a macro"


def reachable(tree, start):
    seen, todo = set(), [start]
    while todo:
        path = todo.pop()
        if path in seen or path not in tree:
            continue
        seen.add(path)
        todo += [target for _, target in INCLUDE.findall(without_comments(tree[path]))]
    return seen


def check(tree):
    """All that is wrong in a tree {path: text}, a line each."""
    problems = [problem for path in sorted(tree) for problem in check_file(path, tree[path], tree)]
    if ALL in tree:
        missing = sorted(path for path in tree if is_installed(path) and path != FMT_HEADER and path not in reachable(tree, ALL))
        problems += [f"{ALL}: does not reach {path}: run cmake/check_layers.py --write-all" for path in missing]
    return problems


def all_headers(tree):
    headers = sorted(path for path in tree if is_installed(path) and path.endswith(".h") and path not in (ALL, FMT_HEADER))
    order = [*PLATFORM, *(room for room in ALLOWED if room not in PLATFORM)]
    at = {room: place for place, room in enumerate(order)}
    headers.sort(key=lambda path: at.get(room_of(path), -1))
    lines = [f'#include "{path}"' for path in [*GENERATED, *headers]]
    return "#pragma once\n/// Everything that the library offers.\n" + "\n".join(lines) + "\n"


def read_tree(root):
    files = (file for folder in ("Tessarin", "integration", "examples") for file in (root / folder).rglob("*"))
    return {file.relative_to(root).as_posix(): file.read_text() for file in files if file.suffix in (".h", ".inl", ".cpp")}


def self_test():
    around = {path: "" for path in (
        "Tessarin/platform/runtime/Ref.h", "Tessarin/platform/queues/Queue.h", "Tessarin/platform/foundation/time/NSDate.h",
        "Tessarin/platform/sqlite/Statement.h", "Tessarin/platform/objectgraph/model/Entity.h",
        "Tessarin/platform/objectgraph/context/Context.h", "Tessarin/platform/queues/LanePrivate.h",
        "Tessarin/platform/queues/engine/Pool.h",
        "Tessarin/dates/NSDate+Ages.h", "Tessarin/dates/NSDate+Ages.inl", "Tessarin/dispatch/Dispatcher.h",
        "Tessarin/notifications/Notifier.h", "Tessarin/state/State.h", "Tessarin/store/Store.h")}
    inc = '#include "Tessarin/{}"\n'.format
    around["Tessarin/platform/foundation/time/NSDate.h"] = inc("dates/NSDate+Ages.h") + inc("dates/NSDate+Ages.inl")
    rows = [  # where, what stands there, what is said about it (None: nothing)
        ("platform/runtime/A.h", inc("platform/queues/Queue.h"), "'platform/runtime' may not include 'platform/queues'"),
        ("platform/queues/A.h", inc("platform/runtime/Ref.h"), None),
        ("platform/objectgraph/model/A.cpp", inc("platform/objectgraph/context/Context.h"), "may not include"),
        ("platform/objectgraph/context/A.cpp", inc("platform/objectgraph/model/Entity.h"), None),
        ("platform/foundation/values/A.h", inc("platform/objectgraph/model/Entity.h"), "may not include"),
        ("platform/foundation/values/A.cpp", inc("dates/NSDate+Ages.h"), "may not include"),
        ("platform/foundation/values/A.cpp", inc("platform/foundation/time/NSDate.h"), "may not include"),
        ("platform/foundation/files/NSURL.h", inc("dates/NSDate+Ages.h"), "may not include"),
        ("platform/foundation/time/NSDate.h", inc("dates/NSDate+Ages.h") + inc("dates/NSDate+Ages.inl"), None),
        ("platform/foundation/time/NSDate.cpp", inc("dates/NSDate+Ages.h"), "may not include"),
        ("dispatch/A.cpp", inc("platform/objectgraph/context/Context.h"), "may not include"),
        ("dispatch/DeferredIn.h", inc("platform/objectgraph/context/Context.h"), None),
        ("dispatch/DeferredIn.h", inc("notifications/Notifier.h"), "may not include"),
        ("collections/A.h", inc("dispatch/Dispatcher.h"), "may not include"),
        ("notifications/A.h", inc("dispatch/Dispatcher.h"), None),
        ("notifications/A.h", inc("state/State.h"), "may not include"),
        ("store/A.h", inc("state/State.h"), "may not include"),
        ("state/A.h", inc("notifications/Notifier.h"), None),
        ("measurement/A.h", inc("dates/NSDate+Ages.h"), None),
        ("measurement/A.h", inc("store/Store.h"), "may not include"),
        ("attic/A.h", inc("platform/runtime/Ref.h"), "is not in the table"),
        ("platform/queues/A.h", inc("platform/queues/Gone.h"), "no such file"),
        ("platform/queues/A.h", '#include "Queue.h"\n', 'included as "Tessarin/'),
        ("platform/queues/A.h", inc("platform/queues/LanePrivate.h"), "is not installed"),
        ("platform/queues/A.cpp", inc("platform/queues/LanePrivate.h"), None),
        ("platform/queues/A.h", inc("platform/queues/engine/Pool.h"), "is not installed"),
        ("platform/queues/engine/A.h", inc("platform/queues/engine/Pool.h") + inc("platform/queues/LanePrivate.h"), None),
        ("platform/objectgraph/context/A.h", inc("platform/sqlite/Statement.h"), "is not installed"),
        ("platform/objectgraph/context/A.cpp", inc("platform/sqlite/Statement.h"), None),
        ("../integration/gtk/A.h", inc("platform/queues/LanePrivate.h"), "is not public"),
        ("../integration/gtk/A.h", inc("Version.h") + inc("platform/queues/Queue.h"), None),
        ("../integration/gtk/A.h", "int slots = 0;", "the word 'slots'"),
        ("../examples/a/main.cpp", inc("integration/gtk/Gone.h"), "no such file"),
        ("store/A.cpp", "#include <mutex>\n", "locks and atomics"),
        ("store/A.h", "  #  include <shared_mutex>\n", "locks and atomics"),
        ("store/A.cpp", "// #include <atomic>\n/* #include <mutex> */", None),
        ("store/A.cpp", "std::atomic<int> count;", "uses std::atomic"),
        ("store/A.cpp", "std::lock_guard const guard(m);", "uses std::lock_guard"),
        ("store/A.cpp", 'fatal("no std::mutex here");  // nor std::atomic', None),
        ("platform/queues/A.h", "#include <atomic>\nstd::atomic<int> count;", None),
        ("platform/sqlite/A.h", "#include <sqlite3.h>\n", "third-party"),
        ("platform/sqlite/A.cpp", "#include <sqlite3.h>\n", None),
        ("store/A.cpp", "#include <unicode/uchar.h>\n", "third-party"),
        ("store/A.cpp", "#include <simdjson.h>\n", "third-party"),
        ("store/A.cpp", "#include <pugixml.hpp>\n", "third-party"),
        ("store/A.cpp", "#include <fmt/format.h>\n", None),
        ("store/A.h", "#include <fmt/format.h>\n", "fmt belongs"),
        ("platform/runtime/Format.h", "#include <fmt/format.h>\n", None),
        ("store/A.h", "#include <sstream>\n", "heavy header"),
        ("store/A.cpp", "#include <sstream>\n", None),
        ("platform/queues/APrivate.h", "#include <mutex>\n", None),
        ("store/A.h", "void emit();", "the word 'emit'"),
        ("store/A.h", "int slots = 0;", "the word 'slots'"),
        ("store/A.h", 'auto a = R"(emit)"; // signals\n/* foreach */ int emitted = 1\'000; char c = \'"\'; int slotsUsed;', None),
        ("store/A.cpp", "int slots = 0;", None),
        ("platform/sqlite/A.h", "int slots = 0;", None),
        ("Tessarin.h", "", "does not reach Tessarin/store/Store.h"),
        ("Tessarin.h", all_headers(around), None),
    ]
    failures = 0
    for where, text, expected in rows:
        tree = around | {posixpath.normpath("Tessarin/" + where): text}
        found = check(tree)
        good = any(expected in line for line in found) if expected else not found
        if not good:
            failures += 1
            print(f"self-test: {where}: {text!r}: expected {expected!r}, found {found}")
    print(f"self-test: {len(rows)} cases, {failures} failed")
    return failures


def main(arguments):
    if arguments == ["--self-test"]:
        return 1 if self_test() else 0
    root = Path(__file__).resolve().parent.parent
    tree = read_tree(root)
    if arguments == ["--write-all"]:
        (root / ALL).write_text(all_headers(tree))
        return 0
    if arguments:
        print(__doc__, file=sys.stderr)
        return 2
    problems = check(tree)
    print("\n".join(problems) if problems else f"{len(tree)} files, no forbidden include.")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
