"""Inside the router: the local configuration API, an HTTP/1.1 server on a UNIX socket, that can be made to misbehave.

One thread per connection, so that a request that hangs holds up no other."""

import json
import os
import socket
import threading
import time
import urllib.parse

PATH = "/run/api/http.sock"
WANS = "/api/waninfo/wans"
SHORT_NAMES = {"wans": WANS, "tunnels": "/api?fields=greTunnels,ipsecTunnels,ni", "openvpn": "/api?fields=ovpnTunnels",
               "syslog": "/api?fields=syslog"}
GOOD_STATUS = 200


class Rule:
    """How to answer some requests; the keys of `how` are those of `Api.on` (faces.py)."""

    def __init__(self, target: str | None, times: int | None, how: dict):
        self.target = SHORT_NAMES.get(target, target)
        self.left = times
        self.how = how

    def takes(self, target: str) -> bool:
        """Whether this rule answers the request; counts it."""
        if self.left == 0 or self.target not in (None, target):
            return False
        if self.left is not None:
            self.left -= 1
        return True


class ApiServer:
    """The server; its methods may be called from any thread."""

    def __init__(self, recorder, documents: dict):
        self._recorder = recorder
        self._documents = documents
        self._lock = threading.Lock()
        self._rules: list[Rule] = []
        self._release = threading.Event()
        self._listener: socket.socket | None = None

    # ---- what the tests change ----

    def set_documents(self, documents: dict) -> None:
        with self._lock:
            self._documents = documents

    def on(self, target: str | None, times: int | None, how: dict) -> None:
        """Adds a rule; of several that fit, the one that was added last answers."""
        with self._lock:
            self._rules.insert(0, Rule(target, times, how))

    def reset(self) -> None:
        with self._lock:
            self._rules.clear()

    def release(self) -> None:
        """Answers the requests that are being held."""
        with self._lock:
            self._release.set()
            self._release = threading.Event()

    def listen(self, mode: str) -> None:
        """"present": serve. "deaf": nobody accepts. "refusing": a socket file, nobody listens. "absent": no file."""
        if self._listener:
            try:
                self._listener.shutdown(socket.SHUT_RDWR)  # wakes the thread in accept
            except OSError:
                pass  # it was only bound
            self._listener.close()
            self._listener = None
        if os.path.lexists(PATH):
            os.unlink(PATH)
        if mode == "absent":
            return
        self._listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._listener.bind(PATH)
        if mode != "refusing":
            self._listener.listen(0 if mode == "deaf" else 128)
        if mode == "present":
            threading.Thread(target=self._accept, args=(self._listener,), daemon=True).start()

    # ---- serving ----

    def _accept(self, listener: socket.socket) -> None:
        while True:
            try:
                connection, _ = listener.accept()
            except OSError:
                return  # `listen` closed it
            threading.Thread(target=self._serve, args=(connection,), daemon=True).start()

    def _serve(self, connection: socket.socket) -> None:
        with connection, connection.makefile("rb") as reader:
            while True:
                try:
                    line = reader.readline().decode("latin-1").split()
                    while reader.readline().strip():
                        pass  # no header matters here
                    if len(line) != 3 or not self._answer(connection, line[0], line[1]):
                        return
                except OSError as error:
                    self._recorder.record("answer", "", how=f"the client went away ({error.strerror})", size=0)
                    return

    def _answer(self, connection: socket.socket, method: str, target: str) -> bool:
        """Records and answers one request; false when the connection ends with it."""
        # Before the record: whoever sees that cannot change what becomes of this request but by a release.
        with self._lock:
            rule = next((rule for rule in self._rules if rule.takes(target)), None)
            release = self._release
        self._recorder.record("api", target, method=method)
        how = rule.how if rule else {}
        if how.get("hang"):
            if not self._hold(connection, release):
                self._recorder.record("answer", target, how="held until the client left", size=0)
                return False
        time.sleep(how.get("delay", 0))
        if how.get("close"):
            self._recorder.record("answer", target, how="closed", size=0)
            return False
        body = self._body(target, how)
        http_status = how.get("http_status", GOOD_STATUS)
        head = (f"HTTP/1.1 {http_status} -\r\nContent-Type: application/json\r\n"
                f"Content-Length: {len(body)}\r\n\r\n").encode()
        sent = body[:how["cut"]] if "cut" in how else body
        # Recorded first, so that nothing that the answer causes can come before it.
        self._recorder.record("answer", target, how=_summary(how), http_status=http_status, size=len(sent))
        connection.sendall(head)
        self._send(connection, sent, how)
        return "cut" not in how

    def _hold(self, connection: socket.socket, release: threading.Event) -> bool:
        """Waits for the release (true) or for the client to hang up (false)."""
        while not release.wait(0.01):
            try:
                if connection.recv(1, socket.MSG_PEEK | socket.MSG_DONTWAIT) == b"":
                    return False
            except BlockingIOError:
                pass  # still there, and silent
        return True

    def _send(self, connection: socket.socket, body: bytes, how: dict) -> None:
        size, interval = how.get("dribble", (len(body) or 1, 0))
        for start in range(0, len(body), size):
            if start:
                time.sleep(interval)
            connection.sendall(body[start:start + size])

    def _body(self, target: str, how: dict) -> bytes:
        if "body" in how:
            return how["body"].encode("latin-1")
        if "envelope" in how:
            return json.dumps(how["envelope"]).encode()
        with self._lock:
            result = self._result(target)
        return json.dumps({"code": 404, "result": []} if result is None else {"code": 200, "result": result}).encode()

    def _result(self, target: str):
        url = urllib.parse.urlsplit(target)
        if target == WANS:
            return self._documents.get("wans")
        if url.path != "/api":
            return None
        fields = urllib.parse.parse_qs(url.query).get("fields", [""])[0].split(",")
        return {field: self._documents[field] for field in fields if field in self._documents}


def _summary(how: dict) -> str:
    return ", ".join(f"{key}={str(value)[:40]}" for key, value in how.items()) or "documents"
