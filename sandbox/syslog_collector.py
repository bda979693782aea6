"""Inside the router: the system log's socket /dev/log and what arrives on it (RFC 3164 as syslog(3) writes it)."""

import os
import re
import select
import socket
import struct
import threading

PATH = "/dev/log"
LARGEST_LINE = 1 << 18
SEVERITIES = ("emerg", "alert", "crit", "err", "warning", "notice", "info", "debug")
LINE = re.compile(rb"<(?P<priority>\d+)>(?:\w{3} [ \d]\d \d\d:\d\d:\d\d )?"
                  rb"(?P<ident>[^:\[]*)(?:\[\d+\])?: (?P<text>.*)", re.DOTALL)


class SyslogCollector:
    """The collector. `drain` is called under the recorder's lock; the rest from any thread."""

    def __init__(self, recorder):
        self._recorder = recorder
        self._lock = threading.Lock()
        self._socket: socket.socket | None = None
        self._reading = True
        self._wake_reader, self._wake_writer = os.pipe()
        recorder.drain_first(self.drain)

    def start(self) -> None:
        threading.Thread(target=self._watch, daemon=True).start()

    def listen(self, mode: str) -> None:
        """"present", "absent" (no socket) or "blocked" (a socket that nobody reads). "present" twice is a restart with
        a new socket; after "blocked" it goes on with the old one and what is queued in it."""
        self._recorder.sync()  # what is queued in a socket that goes away was logged before
        with self._lock:
            keeps = self._socket and (mode == "blocked" or (mode == "present" and not self._reading))
            if not keeps:
                self._replace_socket(mode != "absent")
            self._reading = mode != "blocked"
        os.write(self._wake_writer, b"x")

    def drain(self) -> None:
        """Records every line that is queued."""
        with self._lock:
            while self._socket and self._reading:
                try:
                    data, control, _, _ = self._socket.recvmsg(LARGEST_LINE, socket.CMSG_SPACE(12), socket.MSG_DONTWAIT)
                except BlockingIOError:
                    return
                self._append(data, control)

    def _replace_socket(self, present: bool) -> None:
        if self._socket:
            # The thread that waits for this socket in `_watch` keeps it open, and who writes to it would not learn that
            # it is gone.
            self._socket.shutdown(socket.SHUT_RDWR)
            self._socket.close()
            self._socket = None
            os.unlink(PATH)
        if present:
            self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
            self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_PASSCRED, 1)
            self._socket.bind(PATH)
            os.chmod(PATH, 0o666)

    def _append(self, data: bytes, control: list) -> None:
        sender = struct.unpack("iII", control[0][2][:12])[0] if control else 0
        match = LINE.fullmatch(data.rstrip(b"\0"))
        priority = int(match["priority"]) if match else 0
        self._recorder.append("log", os.fsdecode(match["text"] if match else data), pid=sender,
                              ident=os.fsdecode(match["ident"]) if match else "", priority=priority & 7,
                              severity=SEVERITIES[priority & 7], facility=priority >> 3)

    def _watch(self) -> None:
        while True:
            with self._lock:
                sources = [self._wake_reader] + ([self._socket] if self._socket and self._reading else [])
            try:
                ready, _, _ = select.select(sources, [], [])
            except (OSError, ValueError):
                continue  # the socket was replaced at this moment
            if self._wake_reader in ready:
                os.read(self._wake_reader, 1)
            self._recorder.sync()
