#!/usr/bin/env python3
"""Checks that no folder of the source tree knows one that it may not know, and that one folder alone acts.

    layers.py SOURCE_TREE

Prints a line for each finding and exits with 1 when there is one. What a folder knows is read from the #include lines of
its sources and from the targets that its CMakeLists.txt links; what acts is known by the names of functions.
"""

import pathlib
import re
import sys

# Folder -> folders that it may include and link, besides itself.
MAY_KNOW = {
    "effects": set(),
    "support": {"effects"},
    "api": {"support"},
    "monitors": {"support", "api"},
    "configuration": {"support", "api", "monitors"},
    "gre": {"support", "effects", "api"},
    "ipsec": {"support", "effects", "api"},
    "openvpn": {"support", "effects", "api"},
    "core": {"support", "effects", "api", "monitors", "configuration", "gre", "ipsec", "openvpn"},
    "tunnelctl": {"support", "effects", "api", "monitors", "configuration", "gre", "ipsec", "openvpn", "core"},
    "simulation": {"support", "effects", "api", "monitors", "configuration", "gre", "ipsec", "openvpn", "core"},
}

# Folders that no router gets: what they act on is their own.
NOT_SHIPPED = {"simulation"}

# Headers and CMake targets of libraries that the folder must do without.
FOREIGN = {"effects": ("json", "curl"), "support": ("json", "curl")}

# The one folder that acts on the router, and how acting is spelt. The same word as a member or in a scope of its own is
# something else. A thread that sleeps does not act, and so "sleep" is not here.
ACTS = "effects"
ACTING = re.compile(
    r"(?<![\w.>:])(?:(?:std)?::)?(system|popen|v?fork|posix_spawnp?|exec[lv]p?e?|execvpe|killp?g?|waitp?id|f?chmod|umask"
    r"|unlink|rename|mkdir|rmdir|creat|sem_open|sem_unlink|setsid|daemon|usleep|nanosleep|clock_nanosleep|syscall)\s*\(")
OPENING = re.compile(r'\b(O_WRONLY|O_RDWR|O_CREAT|O_TRUNC|O_APPEND|fstream|ofstream|filebuf|freopen|fdopen|filesystem::'
                     r'(?:create|remove|rename|copy|resize|permissions)\w*|fopen\s*\((?![^;]*,\s*"re?"\s*\)))')

SOURCES = ("*.h", "*.cpp")
INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*(["<])([^">\n]+)[">]', re.MULTILINE)
LINKING = re.compile(r"\b(tunnel_mngr_folder|target_link_libraries)\s*\(([^)]*)\)", re.IGNORECASE)


def includes(path):
    """The (quote, header) pairs of a source file."""
    return INCLUDE.findall(path.read_text(encoding="utf-8"))


def sources(tree, folder):
    return sorted(path for pattern in SOURCES for path in (tree / folder).rglob(pattern))


def objection(folder, quote, header):
    """Why a file of the folder may not include the header, or None."""
    first = header.split("/")[0]
    if first in MAY_KNOW:
        return None if first == folder or first in MAY_KNOW[folder] else f"{folder} may not know {first}"
    if quote == '"':
        return "a header of ours is included as \"folder/file.h\", and from the folders of the program only"
    if header.startswith(FOREIGN.get(folder, ())):
        return f"{folder} does without this library"
    return None


def forbidden_includes(tree):
    for folder in MAY_KNOW:
        for path in sources(tree, folder):
            for quote, header in includes(path):
                if reason := objection(folder, quote, header):
                    yield f"{path.relative_to(tree)}: includes {header}: {reason}"


def without_comments(text):
    return re.sub(r"#[^\n]*", "", text)


def forbidden_links(tree):
    for folder, may_know in MAY_KNOW.items():
        path = tree / folder / "CMakeLists.txt"
        if not path.exists():
            continue
        for _, arguments in LINKING.findall(without_comments(path.read_text(encoding="utf-8"))):
            for target in arguments.split():
                if target in MAY_KNOW and target != folder and target not in may_know:
                    yield f"{path.relative_to(tree)}: links {target}: {folder} may not know {target}"
                if any(library in target.lower() for library in FOREIGN.get(folder, ())):
                    yield f"{path.relative_to(tree)}: links {target}: {folder} does without this library"


def without_comments_of_c(text):
    """The code alone, its texts included."""
    return re.sub(r'//[^\n]*|/\*.*?\*/|("(?:\\.|[^"\\\n])*")', lambda found: found[1] or " ", text, flags=re.DOTALL)


def acting(tree):
    for folder in MAY_KNOW:
        for path in sources(tree, folder) if folder != ACTS and folder not in NOT_SHIPPED else ():
            code = without_comments_of_c(path.read_text(encoding="utf-8"))
            for found in [*ACTING.finditer(code), *OPENING.finditer(code)]:
                yield f"{path.relative_to(tree)}: {found[0]}: what acts on the router does so through {ACTS}"


def graph(tree):
    """Each file's path in the tree, with the paths of the files that it includes."""
    return {
        str(path.relative_to(tree)): [header for _, header in includes(path) if (tree / header).is_file()]
        for folder in MAY_KNOW for path in sources(tree, folder)
    }


def circles(edges):
    """One line for each circle that a walk through the files meets."""
    done = set()

    def walk(path, trail):
        if path in trail:
            yield "circle: " + " -> ".join(trail[trail.index(path):] + [path])
        elif path not in done:
            for header in edges.get(path, ()):
                yield from walk(header, trail + [path])
            done.add(path)

    for path in edges:
        yield from walk(path, [])


def findings(tree):
    if not any(sources(tree, folder) for folder in MAY_KNOW):
        return [f"{tree}: no sources found"]
    return [*forbidden_includes(tree), *forbidden_links(tree), *acting(tree), *circles(graph(tree))]


def main():
    if len(sys.argv) != 2:
        sys.exit("usage: layers.py SOURCE_TREE")
    found = findings(pathlib.Path(sys.argv[1]))
    print("\n".join(found) or f"every folder knows what it may know, and {ACTS} alone acts")
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()
