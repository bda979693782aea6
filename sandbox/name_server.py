"""Inside the router: a small name server on 127.0.0.1, UDP and TCP (RFC 1035), with an answer programmed per name."""

import socket
import struct
import threading
import time

ADDRESS = ("127.0.0.1", 53)
LARGEST_UDP_ANSWER = 512
CODES = {"NODATA": 0, "FORMERR": 1, "SERVFAIL": 2, "NXDOMAIN": 3, "NOTIMP": 4, "REFUSED": 5}
TYPE_A, CLASS_IN = 1, 1
FLAGS_ANSWER, FLAG_TRUNCATED = 0x8580, 0x0200  # response, authoritative, recursion desired and available
TIME_TO_LIVE = 0
SO_RCVBUFFORCE = 33  # asm-generic/socket.h; the socket module has no name for it
QUEUE_BYTES = 8_000_000  # a thousand monitors ask at the same moment


class Entry:
    """The answers for one name, given one after the other and then over again.

    An answer is a list of IPv4 addresses, a key of CODES or "SILENT" (never given). With `hold` an answer waits for the
    release, then for `delay` seconds."""

    def __init__(self, answers: list, delay: float, hold: bool):
        self.answers = answers
        self.delay = delay
        self.hold = hold
        self.position = 0

    def next(self):
        answer = self.answers[self.position % len(self.answers)]
        self.position += 1
        return answer


class NameServer:
    """The server; its methods may be called from any thread."""

    def __init__(self, recorder):
        self._recorder = recorder
        self._lock = threading.Lock()
        self._entries: dict[str, Entry] = {}
        self._release = threading.Event()

    def set(self, name: str, answers: list, delay: float, hold: bool) -> None:
        with self._lock:
            self._entries[name.lower()] = Entry(answers, delay, hold)

    def remove(self, name: str) -> None:
        """Makes the name unknown again, as every name is at the start: NXDOMAIN."""
        with self._lock:
            self._entries.pop(name.lower(), None)

    def release(self) -> None:
        """Answers the queries that are being held."""
        with self._lock:
            self._release.set()
            self._release = threading.Event()

    def start(self) -> None:
        udp = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        udp.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, QUEUE_BYTES)
        udp.bind(ADDRESS)
        tcp = socket.create_server(ADDRESS)
        threading.Thread(target=self._serve_udp, args=(udp,), daemon=True).start()
        threading.Thread(target=self._serve_tcp, args=(tcp,), daemon=True).start()

    def _serve_udp(self, udp: socket.socket) -> None:
        while True:
            query, client = udp.recvfrom(4096)

            def reply(answer: bytes, question_size: int, client=client) -> None:
                if len(answer) > LARGEST_UDP_ANSWER:
                    flags = struct.unpack_from("!H", answer, 2)[0] | FLAG_TRUNCATED
                    answer = answer[:2] + struct.pack("!HHHHH", flags, 1, 0, 0, 0) + answer[12:12 + question_size]
                udp.sendto(answer, client)

            threading.Thread(target=self._answer, args=(query, reply, "udp"), daemon=True).start()

    def _serve_tcp(self, tcp: socket.socket) -> None:
        while True:
            connection, _ = tcp.accept()
            threading.Thread(target=self._serve_connection, args=(connection,), daemon=True).start()

    def _serve_connection(self, connection: socket.socket) -> None:
        def reply(answer: bytes, _question_size: int) -> None:
            connection.sendall(struct.pack("!H", len(answer)) + answer)

        with connection, connection.makefile("rb") as reader:
            while len(size := reader.read(2)) == 2:
                self._answer(reader.read(struct.unpack("!H", size)[0]), reply, "tcp")

    def _answer(self, query: bytes, reply, transport: str) -> None:
        name, kind, question = _parse(query)
        with self._lock:
            entry = self._entries.get(name.lower())
            # Only questions for an IPv4 address move on in the list: a client may ask for more without shifting it.
            answer = "NXDOMAIN" if entry is None else entry.next() if kind == TYPE_A else "NODATA"
            release = self._release
        shown = answer if isinstance(answer, str) else ",".join(answer)
        held = entry is not None and entry.hold
        self._recorder.record("dns", name, answer=shown, type=kind, transport=transport, held=held)
        if answer == "SILENT":
            return
        if held:
            release.wait()
        time.sleep(entry.delay if entry else 0)
        reply(_compose(query, question, answer), len(question))


def _parse(query: bytes) -> tuple[str, int, bytes]:
    """Name, type and the bytes of the first question."""
    labels, position = [], 12
    while size := query[position]:
        labels.append(query[position + 1:position + 1 + size].decode("latin-1"))
        position += 1 + size
    kind = struct.unpack_from("!H", query, position + 1)[0]
    return ".".join(labels), kind, query[12:position + 5]


def _compose(query: bytes, question: bytes, answer) -> bytes:
    addresses = [] if isinstance(answer, str) else answer
    code = 0 if addresses else CODES[answer]
    head = query[:2] + struct.pack("!HHHHH", FLAGS_ANSWER | code, 1, len(addresses), 0, 0)
    records = b"".join(struct.pack("!HHHIH", 0xC00C, TYPE_A, CLASS_IN, TIME_TO_LIVE, 4) + socket.inet_aton(address)
                       for address in addresses)
    return head + question + records
