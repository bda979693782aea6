"""The prompt of `scripts/demo --keep`: changes a running router by hand."""

import cmd
import json
import shlex
import subprocess
from typing import Callable

from sandbox.lines import line
from sandbox.router import Router

SHELL_PATH = "/run/sandbox/bin:/usr/sbin:/usr/bin:/sbin:/bin"


class Playground(cmd.Cmd):
    """Each command is a `do_` method, and its documentation is what `help` says of it."""

    intro = "What happens is shown as it happens. Commands:\n"
    prompt = "router> "

    def __init__(self, router: Router, tunnels: Callable[[Router], str]):
        super().__init__()
        self._router = router
        self._tunnels = tunnels

    def preloop(self) -> None:
        self.intro += "\n".join(f"  {getattr(self, name).__doc__}" for name in self.get_names()
                                if name.startswith("do_") and name != "do_help")

    def emptyline(self) -> bool:
        return False  # and not the last command again

    def default(self, text: str) -> bool:
        if text == "EOF":  # the end of the input, as cmd tells it
            return True
        return super().default(text)

    def onecmd(self, text: str) -> bool:
        try:
            return super().onecmd(text)
        except (AssertionError, OSError, TypeError, ValueError) as error:
            print(f"that does not work: {error}")
            return False

    def do_wan(self, words: str) -> None:
        """wan [ADDRESS]          make this the current WAN, or have none; noticed within 30 seconds"""
        self._router.documents["wans"] = [{"current": True, "ip": address} for address in shlex.split(words)]

    def do_host(self, words: str) -> None:
        """host NAME ANSWER       have the name server answer this: an address, NXDOMAIN, SERVFAIL, NODATA, SILENT"""
        self._router.dns.set(*shlex.split(words))

    def do_load(self, words: str) -> None:
        """load FILE              take all documents of the configuration from this file"""
        with open(words) as file:
            self._router.documents.update(json.load(file))

    def do_refresh(self, _words: str) -> None:
        """refresh                run the program a second time: it has the daemon do a run"""
        self._router.start("--printlvl", "100")

    def do_tunnels(self, _words: str) -> None:
        """tunnels                list the GRE tunnels"""
        print(self._tunnels(self._router))

    def do_timeline(self, _words: str) -> None:
        """timeline               print everything since the start, with the answers and the ends of commands"""
        print("\n".join(line(event) for event in self._router.timeline()))

    def do_shell(self, _words: str) -> None:
        """shell                  open a shell in the router; leave it with exit"""
        subprocess.run(["nsenter", "-t", str(self._router.keeper_pid), "-a", "env", "-i", f"PATH={SHELL_PATH}",
                        "HOME=/root", "TERM=dumb", "PS1=inside# ", "/run/sandbox/sh", "-i"], check=False)

    def do_quit(self, _words: str) -> bool:
        """quit                   end the demonstration"""
        return True
