"""Runs the daemon in a router and prints what happens, live: python3 -m sandbox --program PATH --documents FILE."""

import argparse
import sys

from sandbox.lines import line
from sandbox.router import Router


def _parse() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="python3 -m sandbox", description=__doc__)
    parser.add_argument("--program", required=True, help="the daemon's path")
    parser.add_argument("--documents", help="JSON file with the configuration API's documents")
    parser.add_argument("--dns", metavar="NAME=ADDRESS", action="append", default=[],
                        help="a name to resolve; repeatable")
    parser.add_argument("--printlvl", default="100", help="print level of the daemon (%(default)s)")
    parser.add_argument("--real-ip", action="store_true", help="really execute the ip commands")
    parser.add_argument("--keep", action="store_true", help="keep the router when the daemon has ended, until Ctrl-C")
    return parser.parse_args()


def main() -> int:
    options = _parse()
    with Router(options.program, options.documents, real_ip=options.real_ip) as router:
        for entry in options.dns:
            router.dns.set(*entry.split("=", 1))
        router.make_ipsec_folders()
        print(f"a shell in the router: nsenter -t {router.keeper_pid} -a /run/sandbox/sh", flush=True)
        daemon = router.daemon("--printlvl", options.printlvl)
        for event in router.follow():
            print(line(event, coloured=sys.stdout.isatty()), flush=True)
            if event.kind == "exit" and event.pid == daemon.pid and not options.keep:
                return 0 if event.status == 0 else 1
    return 1


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit(0)  # how a router that is kept is left
