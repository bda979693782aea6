#!/usr/bin/env python3
"""Checks what the libraries of the folders call: none but that of effects/ may act on the router.

    acting_symbols.py LIBRARY...

layers.py reads how acting is spelt; this reads what was compiled, which no spelling hides. Prints a line for each finding
and exits with 1 when there is one, or when a library tells nothing.
"""

import re
import subprocess
import sys

ACTING = re.compile(
    r"^(system|v?fork|clone3?|posix_spawnp?|popen|exec[lv]p?e?|execvpe|execveat|fexecve|kill|killpg|tgkill|sigqueue|wait|wait[34]"
    r"|waitp?id|f?chmod(at)?|[fl]?chown(at)?|umask|unlink(at)?|remove|rename(at2?)?|mkdir(at)?|rmdir|mkfifo(at)?|mknod(at)?|(sym)?link(at)?"
    r"|f?truncate(64)?|open(at)?(64)?|__open(at)?(64)?_2|creat(64)?|fdopen|freopen(64)?|sem_open|sem_unlink|shm_open|shm_unlink|setsid|daemon|u?sleep"
    r"|(clock_)?nanosleep|mount|syscall|.*filesystem.*(remove|rename|create|copy|resize_file|permissions).*|.*basic_(o|)f(stream|ilebuf).*)$")


def undefined_symbols(library):
    """Of the machine code. Where there is code for link-time optimisation beside it, nm would show the symbols of that,
    which lack the functions that the compiler knows itself, fork among them."""
    listing = subprocess.run(["readelf", "-sW", library], capture_output=True, text=True, check=True).stdout
    return set(re.findall(r" UND (\S+)$", listing, re.MULTILINE))


def main():
    found = []
    for library in sys.argv[1:]:
        symbols = undefined_symbols(library)
        found += [f"{library}: calls {symbol}" for symbol in sorted(symbols) if ACTING.match(symbol)]
        if not symbols:
            found.append(f"{library}: calls nothing at all")
    print("\n".join(found) or f"none of {len(sys.argv) - 1} libraries acts")
    sys.exit(1 if found or len(sys.argv) < 2 else 0)


if __name__ == "__main__":
    main()
