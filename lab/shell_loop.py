"""A run as a shell script: the same commands in the same order, by what `tunnelctl plan --json` tells."""

import shlex

SCRIPT, CHILDREN, END = "run.sh", "children.sh", "end.sh"
NOTE = "pids"
END_CHILDREN = "for pid in $(cat {note}); do kill $pid; while kill -0 $pid; do sleep 0.01; done; done 2>/dev/null"


def files(plan: dict, folder: str) -> dict[str, str]:
    """By name, what is to lie in the folder: the script, one that only starts the openvpn processes, one that ends
    them, and the texts of files as the run leaves them."""
    texts = {path: change["after"] for path, change in plan["files"].items() if change["after"] is not None}
    names = {path: f"text{number}" for number, path in enumerate(texts)}
    end = END_CHILDREN.format(note=f"{folder}/{NOTE}")
    lines, ended = [], False
    for act in plan["acts"]:
        if "end" in act and not ended:
            lines, ended = [*lines, end], True
        lines += _lines(act, names, folder)
    starts = [line for act in plan["acts"] if "start" in act for line in _lines(act, names, folder)]
    note = f": >{folder}/{NOTE}"
    return {SCRIPT: _script([line for line in lines if line not in starts] + [note, *starts]),
            CHILDREN: _script([note, *starts]), END: _script([end]),
            **{names[path]: text for path, text in texts.items()}}


def _lines(act: dict, names: dict[str, str], folder: str) -> list[str]:
    match act:
        case {"run": command}:
            return [command]
        case {"write": path} if path in names:
            return [f"cp {folder}/{names[path]} {shlex.quote(path)}"]
        case {"chmod": path, "mode": mode}:
            return [f"chmod {mode} {shlex.quote(path)}"]
        case {"start": words}:
            return [f"{shlex.join(words)} & echo $! >>{folder}/{NOTE}"]
        case {"pause": milliseconds}:
            return [f"sleep {milliseconds / 1000}"]
    return []


def _script(lines: list[str]) -> str:
    return "\n".join(["#!/bin/sh", *lines, ""])
