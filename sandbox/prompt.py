"""Outside: a prompt at which lines appear while somebody types."""

import contextlib
import ctypes
import readline
import select
import signal
import sys
from collections.abc import Iterator
from typing import Callable

INTERVAL = 0.1  # seconds between looks for fresh lines; Python has the same between two calls of the hook below


def on_terminal() -> bool:
    return sys.stdin.isatty() and sys.stdout.isatty()


@contextlib.contextmanager
def lines_above_the_prompt(fresh_lines: Callable[[], list[str]]) -> Iterator[None]:
    """While readline waits for a key, what `fresh_lines()` returns is printed above the prompt, which is then shown
    again with what has been typed. Ctrl-C takes back what has been typed, and does nothing else.

    Python calls the hook that is set here on the thread that reads, between two keys, so readline is at rest. A thread
    that printed by itself would come between readline and the terminal."""
    library = ctypes.CDLL(readline.__file__)
    signals: set[int] = set()

    def idle() -> int:
        lines = fresh_lines()
        if lines or signals:
            if signal.SIGINT in signals:
                library.rl_replace_line(b"", 0)
            if signal.SIGCONT in signals:  # after Ctrl-Z and fg: the shell in between had the terminal its own way
                library.rl_deprep_terminal()
                library.rl_prep_terminal(1)
            signals.clear()
            library.rl_clear_visible_line()
            library.fflush(None)
            print(*lines, sep="\n", end="\n" if lines else "", flush=True)
            library.rl_on_new_line()
            library.rl_redisplay()
        return 0

    hook = ctypes.CFUNCTYPE(ctypes.c_int)(idle)
    slot = ctypes.c_void_p.in_dll(ctypes.pythonapi, "PyOS_InputHook")
    earlier_hook, slot.value = slot.value, ctypes.cast(hook, ctypes.c_void_p).value
    handlers = {number: signal.signal(number, lambda got, _frame: signals.add(got))
                for number in (signal.SIGINT, signal.SIGCONT)}
    try:
        yield
    finally:
        slot.value = earlier_hook
        for number, handler in handlers.items():
            signal.signal(number, handler)


class PlainInput:
    """Standard input that is no terminal, as a file to read lines from. What happens is printed while there is nothing
    to read, and a line that has been read is printed too, so that the output tells what was asked."""

    def __init__(self, catch_up: Callable[[], None], prompt: str):
        self._catch_up = catch_up
        self._prompt = prompt
        self._source = open(0, "rb", buffering=0, closefd=False)  # select(2) does not see what a buffer holds

    def readline(self) -> str:
        while not select.select([self._source], [], [], INTERVAL)[0]:
            self._catch_up()
        line = self._source.readline().decode(errors="replace")
        if line:
            print(self._prompt + line.rstrip("\n"), flush=True)
        return line
