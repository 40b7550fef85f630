#!/usr/bin/env python3
"""Keeps the library's layers layers.

Every folder of PelmoraCore/ sees the whole PelmoraCore/ include path, so the
compiler lets any folder include any other. This check lets a file in
PelmoraCore/<folder>/ include "<other>/..." only when the library
pelmora_<folder> depends on pelmora_<other>, directly or through others, in
PelmoraCore/CMakeLists.txt; and it fails when those dependencies go round in
a circle. Run from anywhere; exits 1 naming each file and line that breaks it.
"""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
CORE = ROOT / "PelmoraCore"
CMAKE = CORE / "CMakeLists.txt"
SOURCES = {".h", ".hpp", ".cpp", ".c", ".mm", ".m"}
INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]([^/<>"]+)/([^<>"]*)')
# Arrows that run back up and are already in the tree, as (file, header):
# each one is named when the check passes, so that it gets removed; any
# other include of the same kind fails.
KNOWN = set()


def declared_dependencies(text):
    """Folder -> the folders its library names in DEPENDS, LIBS or
    target_link_libraries."""
    text = re.sub(r"#[^\n]*", "", text)
    graph = {}
    calls = [(m[0], m[1]) for m in re.findall(r"pelmora_module\s*\(\s*(\w+)([^)]*)\)", text)]
    calls += re.findall(r"target_link_libraries\s*\(\s*pelmora_(\w+)([^)]*)\)", text)
    for folder, arguments in calls:
        graph.setdefault(folder, set()).update(re.findall(r"\bpelmora_(\w+)", arguments))
    return graph


def closure(graph, folder, path=()):
    """The folders that `folder` may include, itself among them; raises
    ValueError with the circle when the dependencies lead back to one on
    `path`."""
    if folder in path:
        circle = path[path.index(folder):]
        start = circle.index(min(circle))  # one spelling for each circle
        circle = circle[start:] + circle[:start + 1]
        raise ValueError(" -> ".join("pelmora_" + f for f in circle))
    reached = {folder}
    for dependency in graph.get(folder, ()):
        reached |= closure(graph, dependency, path + (folder,))
    return reached


def main():
    graph = declared_dependencies(CMAKE.read_text())
    folders = sorted(p.name for p in CORE.iterdir() if p.is_dir())
    problems = []
    known = []
    for folder in folders:
        try:
            allowed = closure(graph, folder)
        except ValueError as circle:
            problems.append(f"{CMAKE.relative_to(ROOT)}: libraries that depend in a circle: "
                            f"{circle}")
            continue
        for source in sorted((CORE / folder).rglob("*")):
            if source.suffix not in SOURCES:
                continue
            lines = source.read_text(errors="replace").splitlines()
            for number, line in enumerate(lines, 1):
                match = INCLUDE.match(line)
                if not match or match[1] not in folders or match[1] in allowed:
                    continue
                where = str(source.relative_to(ROOT))
                if (where, f"{match[1]}/{match[2]}") in KNOWN:
                    known.append(f"{where}:{number}: {folder} includes {match[1]}/{match[2]}")
                    continue
                problems.append(
                    f"{where}:{number}: {folder} includes {match[1]}/, "
                    f"but pelmora_{folder} does not depend on pelmora_{match[1]} "
                    f"(it may include {', '.join(sorted(allowed))})")
    for problem in dict.fromkeys(problems):
        print(problem, file=sys.stderr)
    if problems:
        print(f"layers: broken against the dependencies in {CMAKE.relative_to(ROOT)}",
              file=sys.stderr)
        return 1
    for arrow in known:
        print(f"layers: known arrow back up, to be removed: {arrow}")
    print(f"layers: {len(folders)} folders include only what they depend on in "
          f"{CMAKE.relative_to(ROOT)}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
