"""In the machine: does what the commands on a serial line say. One JSON object a line, each answered by one.

{"run": command} runs it with the shell and answers with its status and what it wrote; {"write": path, "text": text},
{"read": path}, {"list": folder} and {"processes": true} spare the machine a process. The first line, without having
been asked, is {"ready": the id of this boot}."""

import contextlib
import json
import os
import pathlib
import subprocess
import sys
import tty

BOOT_ID = "/proc/sys/kernel/random/boot_id"
LONGEST_OUTPUT = 60_000  # what comes before is of no use to anybody, and the line is slow


def run(command: str) -> dict:
    result = subprocess.run(["sh", "-c", command], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                            errors="replace")
    return {"status": result.returncode, "output": result.stdout[-LONGEST_OUTPUT:],
            "errors": result.stderr[-LONGEST_OUTPUT:]}


def write(path: str, text: str) -> dict:
    pathlib.Path(path).parent.mkdir(parents=True, exist_ok=True)
    pathlib.Path(path).write_text(text)
    return {}


def read(path: str) -> dict:
    """A file that is not there has no text."""
    try:
        return {"text": pathlib.Path(path).read_text()}
    except FileNotFoundError:
        return {"text": None}


def processes() -> dict:
    """Of each its id, its parent's, its control group and its arguments. The kernel's own have none and are left
    out."""
    found = []
    for pid in sorted(int(name) for name in os.listdir("/proc") if name.isdigit()):
        folder = pathlib.Path(f"/proc/{pid}")
        with contextlib.suppress(FileNotFoundError, ProcessLookupError):  # it has just ended
            arguments = [os.fsdecode(word) for word in (folder / "cmdline").read_bytes().split(b"\0")[:-1]]
            parent = int((folder / "stat").read_text().rpartition(")")[2].split()[1])
            group = (folder / "cgroup").read_text().rpartition(":")[2].strip()
            if arguments:
                found.append([pid, parent, group, arguments])
    return {"processes": found}


def answer(request: dict) -> dict:
    match request:
        case {"run": command}:
            return run(command)
        case {"write": path, "text": text}:
            return write(path, text)
        case {"read": path}:
            return read(path)
        case {"list": folder}:
            return {"names": sorted(os.listdir(folder))}
        case _:
            return processes()


def serve(line) -> None:
    def send(message: dict) -> None:
        text = json.dumps(message).encode() + b"\n"
        while text:
            text = text[line.write(text):]

    send({"ready": pathlib.Path(BOOT_ID).read_text().strip()})
    while request := line.readline():
        try:
            send(answer(json.loads(request)))
        except Exception as error:  # told to the one who asked
            send({"error": str(error)})


if __name__ == "__main__":
    with open(sys.argv[1], "r+b", buffering=0) as serial:
        tty.setraw(serial)
        serve(serial)
