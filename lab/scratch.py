"""A temporary folder that nothing leaves behind."""

import contextlib
import pathlib
import shutil
import subprocess
import tempfile
from collections.abc import Iterator

JANITOR = 'read -r _; rm -rf "$0"'  # read ends with the pipe, and that with the last process that may use the folder


@contextlib.contextmanager
def folder(prefix: str, within: pathlib.Path | None = None) -> Iterator[pathlib.Path]:
    """A new folder that is gone after the context. It goes, too, when this process is killed: a process in a session of
    its own, which neither Ctrl-C nor a signal to the process group reaches, waits for that."""
    path = pathlib.Path(tempfile.mkdtemp(prefix=prefix, dir=within))
    with subprocess.Popen(["sh", "-c", JANITOR, str(path)], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                          stderr=subprocess.DEVNULL, start_new_session=True) as janitor:
        try:
            yield path
        finally:
            janitor.kill()
            shutil.rmtree(path, ignore_errors=True)
