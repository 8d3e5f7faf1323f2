#!/usr/bin/python3
"""Checks every #include of the library's folders against the link graph of the CMake files.

Each library target (add_library ... OBJECT/STATIC) may include:
  - headers of its own folder, by their bare name ("Odbc.h"): another folder's private headers
    are not on its include path, and an include that reaches one is reported;
  - public headers (include/kestrel/X.h) owned by itself or by a target it links, directly or
    through others (target_link_libraries).
The tool (cli/) may include only public headers and its own. A library kept apart from the
others (common/) offers its interface in its own include/ folder. A public header belongs to the
target whose folder holds the source of the same name, or to the lowest target that uses it;
a public header may include only what its owner may.

    scripts/check_layers.py [ROOT]      exit 1 and one line per violation when there are any
"""
import glob
import os
import re
import sys

ROOT = os.path.abspath(sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), ".."))
SKIP = ("tests", "bench", "fuzz", "examples", "data", "build")
# Public headers with no source of their own, and the target they belong to.
# (None: any target may include it.)
HEADER_ONLY = {"kestrel/Array.h": "core", "kestrel/Export.h": None, "kestrel/kestrel.h": None}
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.M)


def targets():
    found = {}
    for cmake in glob.glob(os.path.join(ROOT, "**", "CMakeLists.txt"), recursive=True):
        folder = os.path.relpath(os.path.dirname(cmake), ROOT)
        if folder == "." or folder.split(os.sep)[0].startswith(SKIP):
            continue
        text = re.sub(r"#[^\n]*", "", open(cmake).read())
        for m in re.finditer(r"add_(?:library|executable)\((\w+)\s+(?:OBJECT\s+|STATIC\s+)?([^)]*)\)", text):
            files = [f for f in m.group(2).split() if f.endswith((".cpp", ".h")) and "$" not in f]
            found[m.group(1)] = {"folder": folder, "sources": [os.path.join(folder, f) for f in files],
                                 "links": set()}
        for m in re.finditer(r"target_link_libraries\((\w+)\s+([^)]*)\)", text):
            if m.group(1) in found:
                found[m.group(1)]["links"] |= set(m.group(2).split()) - {"PUBLIC", "PRIVATE", "INTERFACE"}
    return found


def reachable(graph, name):
    seen, todo = set(), [name]
    while todo:
        for dep in graph[todo.pop()]["links"]:
            if dep in graph and dep not in seen:
                seen.add(dep)
                todo.append(dep)
    return seen


def files_of(info):
    headers = glob.glob(os.path.join(ROOT, info["folder"], "*.h"))
    return [os.path.join(ROOT, s) for s in info["sources"]] + headers


def main():
    graph = targets()
    below = {name: reachable(graph, name) for name in graph}
    users = {}
    for name, info in graph.items():
        for path in files_of(info):
            for included in INCLUDE.findall(open(path).read()):
                users.setdefault(included, set()).add(name)
    owner = dict(HEADER_ONLY)
    for header in glob.glob(os.path.join(ROOT, "include", "kestrel", "*.h")):
        key = "kestrel/" + os.path.basename(header)
        if key in owner:
            continue
        stem = os.path.splitext(os.path.basename(header))[0]
        named = [n for n, i in graph.items() if any(os.path.basename(s) == stem + ".cpp" for s in i["sources"])]
        using = users.get(key, set())
        lowest = [n for n in using if all(n == o or n in below[o] for o in using)]
        owner[key] = (named or lowest or [None])[0]
    problems = []

    def check(path, name):
        allowed = {name} | below[name]
        for included in INCLUDE.findall(open(path).read()):
            where = os.path.relpath(path, ROOT)
            if included.startswith("kestrel/"):
                held = owner.get(included)
                if held and held not in allowed and name != "kestrel_cli":
                    problems.append(f"{where}: {included} belongs to {held}, which {name} does not link")
            elif not os.path.exists(os.path.join(os.path.dirname(path), included)):
                # A library kept apart (common/) shows its interface in its include/ folder.
                shown = [n for n in allowed
                         if os.path.exists(os.path.join(ROOT, graph[n]["folder"], "include", included))]
                if not shown:
                    problems.append(f"{where}: \"{included}\" is no header of its own folder")

    for name, info in graph.items():
        for path in files_of(info):
            check(path, name)
    for header, name in owner.items():
        if name:
            check(os.path.join(ROOT, "include", header), name)
    for line in sorted(set(problems)):
        print(line)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
