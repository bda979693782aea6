"""The line between a Router and its keeper: JSON objects, one a line, over a socket pair.

From the Router: {"id": n, "op": name, ...arguments}. From the keeper: {"id": n, "result": ...} or {"id": n, "error":
text}, and {"event": {...}} whenever something happens. Events and answers share the line, so whoever holds an answer
has already been given every event that was recorded before it."""

import json
import socket
import threading


class Channel:
    """One end of the line. `send` may be called from any thread, the rest from one."""

    def __init__(self, sock: socket.socket):
        self._socket = sock
        self._sending = threading.Lock()
        self._lines: list[bytes] = []
        self._pieces: list[bytes] = []  # of the line that is not complete yet; a line may have megabytes

    def fileno(self) -> int:
        return self._socket.fileno()

    def send(self, message: dict) -> None:
        line = json.dumps(message).encode() + b"\n"
        with self._sending:
            self._socket.sendall(line)

    def receive(self) -> dict | None:
        """The next message, or None when the other end is gone."""
        while not self._lines:
            try:
                data = self._socket.recv(1 << 16)
            except OSError:
                return None
            if not data:
                return None
            *complete, rest = data.split(b"\n")
            if complete:
                complete[0] = b"".join([*self._pieces, complete[0]])
                self._pieces.clear()
            self._pieces.append(rest)
            self._lines = complete
        return json.loads(self._lines.pop(0))

    def pending(self) -> bool:
        """Whether a message was received that `receive` has not yet returned; select(2) does not see it."""
        return bool(self._lines)

    def close(self) -> None:
        try:
            self._socket.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass  # the other end was faster
        self._socket.close()
