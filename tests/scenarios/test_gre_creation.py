"""GRE: tunnels are brought up with commands that are exact to the blank, in a fixed order, whatever becomes of them."""

import json

import pytest

from daemon_stories import documents
from tunnel_records import (REMOTE, TAG, WAN, create_command, gre_tunnel, ip_commands, lines, logged_run, router_with,
                            run_once, story)

LINK_UP = "ip link set gre1 up"


def created(make_router, *tunnels: dict):
    """A router in which the program has run once with these tunnels."""
    router = router_with(make_router, documents(*tunnels))
    run_once(router)
    assert lines(router, "ERROR") == []
    return router


def commands_for(make_router, **members) -> list[str]:
    """The `ip` commands that a run has for one tunnel record."""
    return ip_commands(created(make_router, gre_tunnel(**members)))


def test_a_whole_tunnel_step_by_step(make_router):
    router = created(make_router, gre_tunnel(tunnelIp="10.9.9.1", tunnelMask="255.255.255.252", routes=[
        {"ip": "192.168.50.0", "mask": 24}, {"ip": "10.0.0.0", "mask": "255.255.0.0"}]))
    assert story(router, "CREATING", "ip route add") == [
        ("INFO", f"{TAG} CREATING GRE TUNNEL: gre1 local[{WAN}] remote[{REMOTE}] ttl[64]"),
        *logged_run("ip tunnel add gre1 mode gre remote 203.0.113.7 local 198.51.100.2 ttl 64"),
        *logged_run("ip link set gre1 up"),
        *logged_run("ip addr add 10.9.9.1/255.255.255.252 dev gre1"),
        ("INFO", f"{TAG} ADDING ROUTE: 192.168.50.0/24 => gre1"),
        *logged_run("ip route add 192.168.50.0/24 dev gre1"),
        ("INFO", f"{TAG} ADDING ROUTE: 10.0.0.0/255.255.0.0 => gre1"),
        *logged_run("ip route add 10.0.0.0/255.255.0.0 dev gre1")]


def test_tunnels_are_made_in_the_order_of_their_records_and_disabled_ones_are_not(make_router):
    router = created(make_router, gre_tunnel("b"), gre_tunnel("off 1", enabled=False), {"name": "off2", "remoteIp": REMOTE},
                     gre_tunnel("a", remoteIp="203.0.113.8"))
    assert story(router, "CREATING", "ip link set a up") == [
        ("INFO", f"{TAG} CREATING GRE TUNNEL: b local[{WAN}] remote[{REMOTE}] ttl[64]"),
        *logged_run(create_command("b")), *logged_run("ip link set b up"),
        ("TRACE", f"{TAG} Tunnel [off_1] is not enabled"), ("TRACE", f"{TAG} Tunnel [off2] is not enabled"),
        ("INFO", f"{TAG} CREATING GRE TUNNEL: a local[{WAN}] remote[203.0.113.8] ttl[64]"),
        *logged_run(create_command("a", "203.0.113.8")), *logged_run("ip link set a up")]


@pytest.mark.parametrize("tunnels", [{"greTunnels": []}, {"greTunnels": None}], ids=["an empty list", "null"])
def test_no_tunnels_are_no_failure(make_router, tunnels):
    router = router_with(make_router, documents(**tunnels))
    run_once(router)
    assert lines(router, "ERROR") == [] and ip_commands(router) == []
    assert f"{TAG} No GRE Tunnels configured" in lines(router, "TRACE")
    assert "firewall --init" in router.command_texts()


@pytest.mark.parametrize("ttl, text", [(64, "64"), ("255", "255"), (255, "255"), ("inherit", "inherit"), ("", ""),
                                       (None, "0"), (64.9, "64"), (True, "1"), (-1, "-1")])
def test_a_ttl_is_a_text_or_a_number(make_router, ttl, text):
    assert commands_for(make_router, ttl=ttl) == [create_command(ttl=text), LINK_UP]


def test_a_missing_ttl_is_zero(make_router):
    record = gre_tunnel()
    del record["ttl"]
    assert ip_commands(created(make_router, record)) == [create_command(ttl="0"), LINK_UP]


@pytest.mark.parametrize("members, command", [
    ({"tunnelIp": "10.0.0.1", "tunnelMask": "30"}, "ip addr add 10.0.0.1/30 dev gre1"),
    ({"tunnelIp": "10.0.0.1", "tunnelMask": 30}, "ip addr add 10.0.0.1/30 dev gre1"),
    ({"tunnelIp": "10.0.0.1", "tunnelMask": "255.255.255.252"}, "ip addr add 10.0.0.1/255.255.255.252 dev gre1"),
    ({"tunnelIp": "not an ip", "tunnelMask": "nor a mask"}, "ip addr add not an ip/nor a mask dev gre1"),
    ({"tunnelIp": "", "tunnelMask": "30"}, None), ({"tunnelIp": "10.0.0.1", "tunnelMask": ""}, None),
    ({"tunnelMask": "30"}, None), ({"tunnelIp": "10.0.0.1"}, None), ({"tunnelIp": None, "tunnelMask": None}, None),
], ids=lambda value: json.dumps(value))
def test_an_address_is_set_when_it_has_a_mask(make_router, members, command):
    route = {"ip": "10.1.0.0", "mask": 16}
    assert commands_for(make_router, **members, routes=[route]) == [
        create_command(), LINK_UP, *([command] if command else []), "ip route add 10.1.0.0/16 dev gre1"]


@pytest.mark.parametrize("route, destination", [
    ({"ip": "10.0.0.0", "mask": 8}, "10.0.0.0/8"), ({"ip": "10.0.0.0", "mask": "8"}, "10.0.0.0/8"),
    ({"ip": "10.0.0.0", "mask": "255.0.0.0"}, "10.0.0.0/255.0.0.0"), ({"ip": "10.0.0.0", "mask": 24.7}, "10.0.0.0/24"),
    ({"ip": "10.0.0.0", "mask": ""}, "10.0.0.0/"), ({"ip": "", "mask": 0}, "/0"), ({"ip": None, "mask": 8}, "/8"),
    ({"ip": 10, "mask": 8}, "10/8"), ({"ip": "10.0.0.0"}, None), ({"mask": 8}, None), ({}, None), (None, None),
], ids=lambda value: json.dumps(value))
def test_a_route_needs_an_address_and_a_mask(make_router, route, destination):
    routes = [route, {"ip": "10.7.0.0", "mask": 16}]
    assert commands_for(make_router, routes=routes) == [
        create_command(), LINK_UP, *([f"ip route add {destination} dev gre1"] if destination is not None else []),
        "ip route add 10.7.0.0/16 dev gre1"]


@pytest.mark.parametrize("mask, shown", [
    pytest.param(None, "null\n", id="null"), pytest.param(True, "true\n", id="bool"), pytest.param({}, "{}\n", id="object"),
    pytest.param([], "[]\n", id="empty array"), pytest.param([8], "[\n\t8\n]\n", id="array")])
def test_a_mask_that_is_neither_text_nor_number_is_left_empty_with_a_warning(make_router, mask, shown):
    router = created(make_router, gre_tunnel(routes=[{"ip": "10.0.0.0", "mask": mask}, {"ip": "10.7.0.0", "mask": 16}]))
    warning, = lines(router, "WARNING")
    assert warning == f"{TAG} Unable to parse number *{shown}*"
    assert ip_commands(router)[2:] == ["ip route add 10.0.0.0/ dev gre1", "ip route add 10.7.0.0/16 dev gre1"]


@pytest.mark.parametrize("routes", [None, [], "text", 5])
def test_routes_may_be_missing(make_router, routes):
    assert commands_for(make_router, routes=routes) == [create_command(), LINK_UP]


def test_a_host_without_an_address_leaves_two_blanks(make_router):
    router = created(make_router, gre_tunnel(remoteIp="unknown.example"))
    assert ip_commands(router) == ["ip tunnel add gre1 mode gre remote  local 198.51.100.2 ttl 64", LINK_UP]
    assert f"{TAG} CREATING GRE TUNNEL: gre1 local[{WAN}] remote[] ttl[64]" in lines(router, "INFO")


def test_a_record_without_members_is_attempted_all_the_same(make_router):
    router = created(make_router, {"enabled": True})
    assert ip_commands(router) == ["ip tunnel add  mode gre remote  local 198.51.100.2 ttl 0", "ip link set  up"]


def test_a_command_that_fails_keeps_no_other_from_being_run(make_router):
    router = router_with(make_router, documents(
        gre_tunnel(tunnelIp="10.0.0.1", tunnelMask="30", routes=[{"ip": "10.1.0.0", "mask": 16}]), gre_tunnel("gre2")))
    router.program("ip").on(status=2, stderr="no\n")
    router.program("ip").on(["tunnel"])
    run_once(router)
    assert lines(router, "ERROR") == [] and lines(router, "WARNING") == []
    assert ip_commands(router) == [create_command(), LINK_UP, "ip addr add 10.0.0.1/30 dev gre1",
                                   "ip route add 10.1.0.0/16 dev gre1", create_command("gre2"), "ip link set gre2 up"]
    assert "firewall --init" in router.command_texts()


def test_names_and_addresses_stand_unquoted_in_the_commands(make_router):
    router = created(make_router, gre_tunnel("g1$UNSET", tunnelIp="10.0.0.1", tunnelMask="30;true"))
    assert ip_commands(router) == [create_command("g1$UNSET"), "ip link set g1$UNSET up",
                                   "ip addr add 10.0.0.1/30;true dev g1$UNSET"]


def test_the_local_end_is_the_current_wan_address(make_router):
    wans = [{"current": current, "ip": f"192.0.2.{n}"} for n, current in enumerate([False, True, True], 1)]
    router = router_with(make_router, documents(gre_tunnel(), wans=wans))
    run_once(router)
    assert ip_commands(router)[0] == create_command(local="192.0.2.2")
