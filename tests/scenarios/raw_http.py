"""A configuration API whose answers are given byte by byte, for what the sandbox's own server does not say; and what
libcurl says of them."""

import ctypes
import json
import pathlib
import sys

SERVER = """
import json, os, socket
with open("/run/answers") as file:
    answers = json.load(file)
server = socket.socket(socket.AF_UNIX)
server.bind("/run/api/new")
server.listen()
os.rename("/run/api/new", "/run/api/http.sock")
while True:
    connection, _ = server.accept()
    with connection, connection.makefile("rb") as reader:
        target = reader.readline().decode().split()[1]
        while reader.readline().strip():
            pass
        with open("/run/asked", "a") as file:
            file.write(target + "\\n")
        connection.sendall(answers.get(target, "").encode("latin-1"))
"""


def http_answer(body: str, *headers: str, status: str = "200 OK") -> str:
    """An answer with these header lines, and nothing that tells where the body ends unless they do."""
    return "\r\n".join([f"HTTP/1.1 {status}", *headers, "", body])


def envelope(result) -> str:
    return json.dumps({"code": 200, "result": result})


def serve_raw(router, answers: dict[str, str]) -> None:
    """Serves these answers (target: characters up to U+00FF, one for each byte), each followed by the connection's end, in
    place of the router's own API. A target without an answer is answered with nothing."""
    router.api.absent()
    # Not over the line to the keeper, since an answer may have megabytes.
    pathlib.Path(f"/proc/{router.keeper_pid}/root/run/answers").write_text(json.dumps(answers))
    router.spawn([sys.executable, "-c", SERVER])
    router.wait_until(lambda: router.exists("/run/api/http.sock"), "the server")


def asked(router) -> list[str]:
    """The targets of the requests so far."""
    return (router.read_file("/run/asked") or "").split()


def curl_says(code: int) -> str:
    """libcurl's own text for an error."""
    libcurl = ctypes.CDLL("libcurl.so.4")
    libcurl.curl_easy_strerror.restype = ctypes.c_char_p
    return libcurl.curl_easy_strerror(code).decode()
