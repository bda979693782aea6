"""In the machine: the router's configuration API and its name server, as one service.

What they answer is in a file, one JSON object: `documents` of the API, `names` with an address each."""

import json
import pathlib
import signal
import sys

from sandbox.api_server import ApiServer
from sandbox.name_server import NameServer
from sandbox.recorder import Recorder


def main() -> None:
    answers = json.loads(pathlib.Path(sys.argv[1]).read_text())
    unrecorded = Recorder(lambda event: None, 0)
    names = NameServer(unrecorded)
    for name, address in answers["names"].items():
        names.set(name, [[address]], 0, False)
    names.start()
    ApiServer(unrecorded, answers["documents"]).listen("present")
    signal.pause()


if __name__ == "__main__":
    main()
