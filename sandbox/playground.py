"""Outside: the commands of `scripts/demo --keep`, which change a running router by hand."""

import cmd
import contextlib
import os
import pathlib
import shlex
import subprocess
from typing import Callable

from sandbox.editing import Mistake, as_text, checked_address, checked_answer, edited, parsed, read_file
from sandbox.lines import line
from sandbox.prompt import PlainInput, lines_above_the_prompt, on_terminal
from sandbox.router import Router
from sandbox.show import Show

PROMPT = "router> "
SHELL_PATH = "/run/sandbox/bin:/usr/sbin:/usr/bin:/sbin:/bin"
TAKES_EFFECT = "The daemon reads this in its next run: refresh asks for one. It notices another WAN within 30 seconds."


class Playground(cmd.Cmd):
    """Each command is a `do_` method. The documentation is what `help` says of it, and begins with how it is used; the
    method takes the words that are given with it."""

    def __init__(self, router: Router, show: Show, tunnels: Callable[[], str]):
        self._live = on_terminal()
        super().__init__(stdin=None if self._live else PlainInput(show.catch_up, PROMPT))
        self.use_rawinput = self._live
        self.prompt = PROMPT if self._live else ""
        self._router = router
        self._show = show
        self._tunnels = tunnels
        self._drafts: dict[str, str] = {}  # what has been written into documents and is no JSON yet

    def run(self) -> None:
        """Takes commands until `quit` or the end of the input. What happens is shown as it happens."""
        self.do_help()
        with lines_above_the_prompt(self._show.fresh_lines) if self._live else contextlib.nullcontext():
            self.cmdloop()

    def onecmd(self, text: str) -> bool:
        if text == "EOF":  # the end of the input, as cmd tells it
            print()
            return True
        try:
            return bool(self._obey(words_of(text)))
        except Mistake as mistake:
            print(mistake)
        return False

    def postcmd(self, stop: bool, _text: str) -> bool:
        self._show.catch_up()
        return stop

    def _obey(self, words: list[str]) -> bool | None:
        if not words:
            return False
        name, *rest = words
        command = getattr(self, f"do_{name}", None)
        if command is None:
            raise Mistake(f"There is no command {name}: help lists those that there are.")
        usage = command.__doc__.partition("  ")[0]
        takes = usage.split()[1:]
        if not sum(not word.startswith("[") for word in takes) <= len(rest) <= len(takes):
            raise Mistake(f"This is used as: {usage}")
        return command(*rest)

    # ---- the commands ----

    def do_wan(self, address: str | None = None) -> None:
        """wan [ADDRESS]          make this the current WAN, or have none"""
        self._router.documents["wans"] = [{"current": True, "ip": checked_address(address)}] if address else []
        print("The daemon notices another WAN within 30 seconds; refresh has it look at once.")

    def do_host(self, name: str, answer: str) -> None:
        """host NAME ANSWER       have the name server answer this: an address, NXDOMAIN, SERVFAIL, NODATA, SILENT"""
        self._router.dns.set(name, checked_answer(answer))
        print("The daemon looks a host up every checkPeriod minutes, and in every run: refresh asks for one.")

    def do_show(self, name: str | None = None) -> None:
        """show [NAME]            print a document of the configuration, or all"""
        print(as_text(self._document(name) if name else dict(self._router.documents)), end="")

    def do_edit(self, name: str) -> None:
        """edit NAME              change a document in your editor: $EDITOR, else vi or nano"""
        self._require_terminal("edit")
        before = self._document(name)
        text = self._drafts[name] = edited(self._drafts.get(name) or as_text(before), name)
        try:
            document = parsed(text, "What you have written")
        except Mistake as mistake:
            raise Mistake(f"{str(mistake)[:-1]}; edit {name} goes on with it.") from None
        del self._drafts[name]
        if document == before:
            raise Mistake("You have changed nothing.")
        self._router.documents[name] = document
        print(TAKES_EFFECT)

    def do_load(self, file: str) -> None:
        """load FILE              take documents of the configuration from a JSON file, by their names"""
        path = pathlib.Path(file).absolute()
        documents = parsed(read_file(path), str(path))
        if not isinstance(documents, dict) or not documents:
            raise Mistake(f"{path} holds no object with members such as greTunnels.")
        for name in documents:
            self._document(name)
        self._router.documents.update(documents)
        print(TAKES_EFFECT)

    def do_refresh(self) -> None:
        """refresh                run the program a second time: it has the daemon do a run"""
        self._router.start("--printlvl", "100")

    def do_tunnels(self) -> None:
        """tunnels                list the tunnels that there are now"""
        print(self._tunnels())

    def do_timeline(self) -> None:
        """timeline               print everything since the start, with the answers and the ends of commands"""
        print("\n".join(line(event) for event in self._router.timeline()))

    def do_shell(self) -> None:
        """shell                  open a shell in the router; leave it with exit"""
        self._require_terminal("shell")
        print("What happens meanwhile is shown afterwards.")
        # In a session and on a terminal of its own (script(1)) it can control jobs. This one it would take and never
        # give back: the processes here have no numbers in there.
        environment = [f"PATH={SHELL_PATH}", "HOME=/root", f"TERM={os.environ.get('TERM', 'dumb')}", "PS1=inside# "]
        inside = ["nsenter", "-t", str(self._router.keeper_pid), "--all", "--root", "--wd", "setsid", "--ctty",
                  "env", "-i", *environment, "/run/sandbox/sh", "-i"]
        subprocess.run(["script", "--quiet", "--command", shlex.join(inside), "/dev/null"],
                       env=os.environ | {"SHELL": "/bin/sh"}, check=False)

    def do_help(self) -> None:
        """help                   list the commands"""
        print("What happens is shown as it happens. Commands:")
        print("\n".join(f"  {method.__doc__}" for name, method in vars(Playground).items() if name.startswith("do_")))
        print(f"Documents of the configuration: {', '.join(self._router.documents)}")

    def do_quit(self) -> bool:
        """quit                   end the demonstration"""
        return True

    def _document(self, name: str):
        if name not in self._router.documents:
            raise Mistake(f"There is no document {name}: there are {', '.join(self._router.documents)}.")
        return self._router.documents[name]

    def _require_terminal(self, command: str) -> None:
        if not self._live:
            raise Mistake(f"The command {command} needs a terminal.")


def words_of(text: str) -> list[str]:
    """The words of a line, which may be in quotation marks as for a shell."""
    try:
        return shlex.split(text)
    except ValueError:
        raise Mistake("A quotation mark is missing, or a character after a backslash.") from None
