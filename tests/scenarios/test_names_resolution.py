"""Names: how hosts are resolved, what is logged of it, and that it happens side by side."""

import pytest

from c_library import is_musl
from daemon_stories import documents
from test_names_pull import FIRST, pull_lines, pulled
from tunnel_records import TAG, create_command, gre_tunnel, ip_commands, ipsec_tunnel, lines, router_with, run_once

NOT_FOUND = TAG + "[FQDN_MONITOR] The host [{}] was not found.\n"
TRY_AGAIN = TAG + "[FQDN_MONITOR] The name server is temporarily unavailable.  Unable to resolve [{}]"
NO_RECOVERY = TAG + "[FQDN_MONITOR] A non-recoverable name server error occurred.  Unable to resolve [{}]\n"
NO_DATA = TAG + "[FQDN_MONITOR] The name [{}] is valid but it has no address.\n"

CATEGORIES = [("NXDOMAIN", NOT_FOUND), ("SERVFAIL", TRY_AGAIN), ("SILENT", TRY_AGAIN), ("REFUSED", TRY_AGAIN),
              ("NOTIMP", TRY_AGAIN), ("NODATA", NO_DATA)]
HOST = "vpn.example.net"


@pytest.mark.parametrize("answer, warning", CATEGORIES)
def test_each_way_to_fail_has_its_warning_for_enabled_and_disabled_tunnels_alike(make_router, answer, warning):
    router = router_with(make_router, documents(
        gre_tunnel("on", remoteIp=HOST), gre_tunnel("off", remoteIp=HOST, enabled=False),
        ipsecTunnels=[ipsec_tunnel("ips", remoteWanIp=HOST)]))
    router.dns.set(HOST, answer)
    run_once(router)
    told = ("WARNING", warning.format(HOST))
    assert pull_lines(router) == [
        ("INFO", FIRST), told, ("INFO", f"{TAG} GRE tunnel [{HOST}][] period 1"), told,
        ("INFO", f"{TAG} GRE tunnel [off] disabled"), told, ("INFO", f"{TAG} ipsec tunnel [ips] disabled")]
    assert {event.severity for event in router.log_lines("WARNING")} == {"warning"}
    assert ip_commands(router) == [create_command("on", remote=""), "ip link set on up"]


# musl asks the name server, whatever nsswitch.conf says.
@pytest.mark.parametrize("files, glibc, musl", [
    pytest.param({"/etc/resolv.conf": "nameserver 127.0.0.2\n"}, TRY_AGAIN, TRY_AGAIN, id="no server at the address"),
    pytest.param({"/etc/resolv.conf": "nameserver 192.0.2.1\n"}, TRY_AGAIN, TRY_AGAIN, id="no route to the server"),
    pytest.param({"/etc/nsswitch.conf": "hosts: files\n"}, NOT_FOUND, NOT_FOUND, id="no name server is used"),
    pytest.param({"/etc/nsswitch.conf": "hosts: nosuch\n", "/etc/host.conf": ""}, None, NOT_FOUND,
                 id="another reason which has no warning"),
    pytest.param({"/etc/nsswitch.conf": "hosts: nosuch\n", "/etc/host.conf": None}, NO_RECOVERY, NOT_FOUND,
                 id="no way to look up"),
])
def test_a_system_without_a_name_server(make_router, program, files, glibc, musl):
    router = router_with(make_router, documents(gre_tunnel(remoteIp=HOST)))
    for path, contents in files.items():
        if contents is None:
            router.remove(path)
        else:
            router.write_file(path, contents)
    warning = musl if is_musl(program) else glibc
    run_once(router)
    told = [("WARNING", warning.format(HOST))] if warning else []
    assert pull_lines(router) == [("INFO", FIRST), *told, ("INFO", f"{TAG} GRE tunnel [{HOST}][] period 1")]
    assert ip_commands(router) == [create_command(remote=""), "ip link set gre1 up"]


@pytest.mark.parametrize("address", ["203.0.113.7", "0.0.0.0", "255.255.255.255", "127.0.0.1"])
def test_a_dotted_address_is_itself_and_no_name_server_is_asked(make_router, address):
    router = pulled(make_router, gre_tunnel(remoteIp=address), ipsec=[ipsec_tunnel(remoteWanIp=address)])
    assert pull_lines(router)[1] == ("INFO", f"{TAG} GRE tunnel [{address}][{address}] period 1")
    assert router.find("dns") == [] and lines(router, "WARNING") == []


@pytest.mark.parametrize("host", ["", "a..b", "-bad.example", "with blank.example", "203.0.113.256", " 203.0.113.7", "::1",
                                  "x" * 300, "stra\u00dfe.example", "a;b"])
def test_what_can_be_no_host_fails_like_one_that_is_not_known(make_router, program, host):
    router = pulled(make_router, gre_tunnel(remoteIp=host))
    warning, = lines(router, "WARNING")
    # glibc says of an empty name that there is no asking again, and musl of an IPv6 address that it is no IPv4 address.
    exceptions = {"::1": NO_DATA} if is_musl(program) else {"": NO_RECOVERY}
    assert warning == exceptions.get(host, NOT_FOUND).format(host)
    assert ip_commands(router)[0] == create_command(remote="")


def test_a_name_has_its_first_address(make_router):
    router = router_with(make_router, documents(gre_tunnel(remoteIp=HOST)))
    # So many that they come over TCP; of more than 63 musl takes none.
    router.dns.set(HOST, [f"203.0.113.{last}" for last in range(163, 100, -1)])
    run_once(router)
    assert pull_lines(router)[1] == ("INFO", f"{TAG} GRE tunnel [{HOST}][203.0.113.163] period 1")
    assert ip_commands(router)[0] == create_command(remote="203.0.113.163")


def test_the_systems_own_rules_of_resolution_hold(make_router):
    router = router_with(make_router, documents(
        gre_tunnel("hosts", remoteIp="known"), gre_tunnel("search", remoteIp="short"), gre_tunnel("second", remoteIp=HOST)))
    router.write_file("/etc/hosts", "203.0.113.21 known\n")
    router.write_file("/etc/resolv.conf", "nameserver 127.0.0.2\nnameserver 127.0.0.1\nsearch corp.example\n")
    router.dns.set("short.corp.example", "203.0.113.22")
    router.dns.set(HOST, "203.0.113.23")
    run_once(router)
    assert [command for command in ip_commands(router) if "add" in command] == [
        create_command("hosts", "203.0.113.21"), create_command("search", "203.0.113.22"),
        create_command("second", "203.0.113.23")]


# Host, answer of the name server, address found, warning.
MIXED = [("slow.example", "203.0.113.31", "203.0.113.31", None), ("refused.example", "REFUSED", "", TRY_AGAIN),
         ("203.0.113.33", None, "203.0.113.33", None), ("fast.example", "203.0.113.34", "203.0.113.34", None),
         ("silent.example", "SILENT", "", TRY_AGAIN), ("unknown.example", "NXDOMAIN", "", NOT_FOUND),
         ("slow.example", "203.0.113.31", "203.0.113.31", None), ("empty.example", "NODATA", "", NO_DATA)]


@pytest.mark.tsan
def test_the_log_is_in_the_order_of_the_records_whatever_answers_first(make_router):
    router = router_with(make_router, documents(
        *(gre_tunnel(f"g{n}", remoteIp=host) for n, (host, *_) in enumerate(MIXED)),
        ipsecTunnels=[ipsec_tunnel(f"i{n}", remoteWanIp=host) for n, (host, *_) in enumerate(MIXED)]))
    for host, answer, *_ in MIXED:
        if answer:
            router.dns.set(host, answer, delay=0.4 if host == "slow.example" else 0)
    run_once(router)
    gre, ipsec = [], []
    for n, (host, _, address, warning) in enumerate(MIXED):
        told = [("WARNING", warning.format(host))] if warning else []
        gre += [*told, ("INFO", f"{TAG} GRE tunnel [{host}][{address}] period 1")]
        ipsec += [*told, ("INFO", f"{TAG} ipsec tunnel [i{n}] disabled")]
    assert pull_lines(router) == [("INFO", FIRST), *gre, *ipsec]


@pytest.mark.tsan
def test_fifty_names_that_time_out_cost_one_time_out(make_router):
    seconds = 3
    hosts = [f"n{n}.example" for n in range(50)]
    router = router_with(make_router, documents(*(gre_tunnel(host, enabled=False, remoteIp=host) for host in hosts)),
                         resolver_options=f"timeout:{seconds} attempts:1")
    for host in hosts:
        router.dns.set(host, "SILENT")
    run_once(router)
    assert lines(router, "WARNING") == [TRY_AGAIN.format(host) for host in hosts]
    first, last = router.find("dns")[0], router.log_lines("WARNING")[-1]
    assert seconds * 0.5 < last.time - first.time < 2 * seconds


@pytest.mark.tsan
def test_at_most_64_names_are_asked_for_at_once(make_router):
    hosts = [f"n{n:03}.example" for n in range(200)]
    delay = 0.2
    router = router_with(make_router, documents(*(gre_tunnel(host, enabled=False, remoteIp=host) for host in hosts)),
                         resolver_options="timeout:30 attempts:1")
    for n, host in enumerate(hosts):
        router.dns.set(host, "203.0.113.7", delay=delay, hold=n < 64)
    program = router.start("-p", "50")
    router.wait_for("dns", count=64)  # none of these is answered before the release, so they are under way together
    released = router.mark("release")
    router.dns.release()
    assert program.wait_exit(30) == 0
    assert lines(router, "WARNING") == []
    queries = router.find("dns")
    assert sorted(event.text for event in queries) == hosts
    assert len([event for event in queries if event.number < released]) == 64
    # The server lets `delay` pass between a query and its answer, so those within that time are under way together.
    later = [event.time for event in queries if event.number > released]
    assert max(sum(start <= time < start + delay for time in later) for start in later) <= 64


def test_the_same_name_is_asked_for_once(make_router):
    router = router_with(make_router, documents(*(gre_tunnel(f"g{n}", remoteIp=HOST) for n in range(5)),
                                                ipsecTunnels=[ipsec_tunnel(remoteWanIp=HOST)]))
    router.dns.rotate(HOST, ["203.0.113.41", "203.0.113.42"])
    run_once(router)
    assert len(router.find("dns", HOST)) == 1
    assert [command for command in ip_commands(router) if "add" in command][-1] == create_command("g4", "203.0.113.41")
