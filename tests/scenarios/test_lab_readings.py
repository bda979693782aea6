"""What the lab reads out of programs' words and of files."""

import json
import stat

import pytest

from lab import readings, router
from lab.topology import SITE_A, SITE_B

WAN_A, WAN_B = SITE_A.wan, SITE_B.wan
NAMES = {SITE_A.host_name: WAN_A, SITE_B.host_name: WAN_B}


def link(name: str, kind: str, flags: list[str], addresses: list[dict] | None = None, **ends) -> dict:
    """A device as `ip -json -details address` shows it."""
    return {"ifname": name, "flags": flags, "linkinfo": {"info_kind": kind, "info_data": ends},
            "addr_info": addresses or []}


GRE_LINK = link("Head_Office", "gre", ["POINTOPOINT", "NOARP", "UP", "LOWER_UP"],
                [{"family": "inet", "local": "10.1.1.2", "prefixlen": 30},
                 {"family": "inet6", "local": "fe80::1", "prefixlen": 64}], local=WAN_B, remote=WAN_A, ttl=64)


def test_devices_tell_ends_state_and_address():
    assert readings.devices(json.dumps([GRE_LINK])) == {
        "Head_Office": f"gre {WAN_B} to {WAN_A} ttl 64, up, 10.1.1.2/30"}


def test_a_device_that_is_down_shows():
    shown = [link("tunspare", "tun", ["POINTOPOINT", "NOARP"], type="tun")]
    assert readings.devices(json.dumps(shown)) == {"tunspare": "tun, down"}


def test_what_every_router_has_is_left_out():
    fixed = [{"ifname": "lo", "flags": ["UP"], "addr_info": []}, link("wan", "veth", ["UP"]),
             link("gre0", "gre", ["NOARP"], local="any", remote="any", ttl=0), {}]
    assert readings.devices(json.dumps(fixed)) == {}


def test_routes_are_those_added_through_the_devices():
    shown = [{"dst": "default", "gateway": "192.0.2.1", "dev": "wan", "flags": []},
             {"dst": "10.1.1.0/30", "dev": "gre1", "protocol": "kernel", "flags": []},
             {"dst": "192.168.21.0/24", "dev": "gre1", "scope": "link", "flags": []},
             {"dst": "192.168.22.0/24", "dev": "tun1", "flags": []}]
    assert readings.routes(json.dumps(shown), {"gre1"}) == ["192.168.21.0/24 gre1"]


XFRM_STATES = """src 198.51.100.2 dst 203.0.113.2
\tproto esp spi 0xc7725fa4(3346161572) reqid 1(0x00000001) mode tunnel
\tlifetime config:
\t  limit: soft (INF)(bytes), hard (INF)(bytes)
\t  limit: soft (INF)(packets), hard (INF)(packets)
\tlifetime current:
\t  588(bytes), 7(packets)
\t  add 2026-11-21 05:25:04 use 2026-11-21 05:25:05
src 203.0.113.2 dst 198.51.100.2
\tproto esp spi 0xcbb56d41(3417664833) reqid 1(0x00000001) mode tunnel
\tlifetime config:
\t  limit: soft 1000(bytes), hard 2000(bytes)
\t  limit: soft 300(packets), hard 400(packets)
\tlifetime current:
\t  420(bytes), 5(packets)
"""


def test_esp_counters_are_not_the_limits():
    assert readings.esp_packets(XFRM_STATES) == 12
    assert readings.esp_states(XFRM_STATES) == 2
    assert readings.esp_packets("") == readings.esp_states("") == 0


def test_policies_of_sockets_do_not_count():
    shown = ("src 192.168.10.0/24 dst 192.168.20.0/24 \n\tdir out priority 375423 ptype main \n"
             "\ttmpl src 198.51.100.2 dst 203.0.113.2\n\t\tproto esp spi 0xc7725fa4 reqid 1 mode tunnel\n"
             "src 0.0.0.0/0 dst 0.0.0.0/0 \n\tsocket in priority 0 ptype main \n")
    assert readings.tunnel_policies(shown) == 1


STATUS = """Connections:
office_192_168_10_0_24:  198.51.100.2...203.0.113.2  IKEv1, dpddelay=60s
office_192_168_10_0_24:   local:  [198.51.100.2] uses pre-shared key authentication
office_192_168_10_0_24:   remote: [203.0.113.2] uses pre-shared key authentication
partner_192_168_10_0_24:  198.51.100.2...203.0.113.30  IKEv2, dpddelay=60s
partner_192_168_10_0_24:   remote: [CN=partner] uses public key authentication
Security Associations (1 up, 1 connecting):
partner_192_168_10_0_24[2]: CONNECTING, 198.51.100.2[%any]...203.0.113.30[%any]
partner_192_168_10_0_24[2]: IKEv2 SPIs: 3a8cbe4a98a9ca03_i* 0000000000000000_r
office_192_168_10_0_24[1]: ESTABLISHED 3 seconds ago, 198.51.100.2[198.51.100.2]...203.0.113.2[203.0.113.2]
office_192_168_10_0_24[1]: IKEv1 SPIs: 672a0d2776e8ee99_i* 171a158e7a91766b_r, rekeying in 2 hours
office_192_168_10_0_24{1}:  AES_CBC_128/HMAC_MD5_96, 0 bytes_i, 0 bytes_o, rekeying in 44 minutes
"""


def test_only_an_established_association_has_exchanged_keys():
    assert readings.key_exchanges(STATUS, "office") == {"IKEv1"}
    assert readings.key_exchanges(STATUS, "partner") == set()


def test_an_exchange_is_under_way_until_it_is_established():
    assert readings.connecting(STATUS) == 1
    assert readings.connecting("Security Associations (2 up, 0 connecting):\n  none\n") == 0


def test_authentication_and_proposal_are_those_of_the_tunnel():
    assert readings.authentication(STATUS, "office") == "pre-shared key"
    assert readings.authentication(STATUS, "partner") == "public key"
    assert readings.proposal(STATUS, "office") == "AES_CBC_128/HMAC_MD5_96"
    assert readings.proposal(STATUS, "partner") == readings.authentication(STATUS, "nobody") == "none"


def test_sections_tell_ends_and_kind():
    text = ("version 2.0\n\nconfig setup\n\tuniqueids=yes\n"
            "\nconn office_10\n\tleft=192.0.2.1\n\tright=192.0.2.2\n\tkeyexchange=ikev1\n\tauthby=secret\n"
            "\nconn vault_10\n\tleft=192.0.2.1\n\tright=192.0.2.3\n\tkeyexchange=ikev2\n\tauthby=rsasig\n")
    assert readings.sections(text) == [("office_10", "192.0.2.1 to 192.0.2.2, ikev1, secret"),
                                       ("vault_10", "192.0.2.1 to 192.0.2.3, ikev2, rsasig")]


def test_a_section_that_stands_there_twice_is_found_twice():
    text = "conn office_10\n\tleft=192.0.2.1\n\tright=192.0.2.2\n\tkeyexchange=ikev1\n\tauthby=secret\n\n"
    assert readings.sections(text + text) == [("office_10", "192.0.2.1 to 192.0.2.2, ikev1, secret")] * 2


@pytest.mark.parametrize("mode, is_open", [
    (stat.S_IFREG | 0o644, False), (stat.S_IFREG | 0o664, True), (stat.S_IFREG | 0o646, True),
    (stat.S_IFREG | 0o600, False), (stat.S_IFDIR | 0o755, False), (stat.S_IFDIR | 0o775, False),
    (stat.S_IFDIR | 0o757, True), (stat.S_IFDIR | 0o1777, True), (stat.S_IFSOCK | 0o770, False),
    (stat.S_IFSOCK | 0o777, True), (stat.S_IFIFO | 0o622, True), (stat.S_IFLNK | 0o777, False)])
def test_nothing_is_open_to_others_and_no_file_to_its_group(mode, is_open):
    found = readings.open_to_writing({"/run": stat.S_IFDIR | 0o755, "/run/it": mode})
    assert found == ([f"{stat.S_IMODE(mode):04o} /run/it"] if is_open else [])


def test_a_router_lists_the_modes_of_all_below_its_folders(tmp_path, monkeypatch):
    (tmp_path / "run" / "deep").mkdir(parents=True)
    (tmp_path / "run" / "deep" / "file").write_text("")
    (tmp_path / "run" / "deep" / "file").chmod(0o606)
    (tmp_path / "run" / "nowhere").symlink_to("/nowhere")
    (tmp_path / "old").symlink_to("run")
    monkeypatch.setattr(router, "RUN_FOLDERS", (str(tmp_path / "run"), str(tmp_path / "old")))
    modes = router.Router._modes(None)
    assert sorted(path.removeprefix(str(tmp_path)) for path in modes) == ["/run", "/run/deep", "/run/deep/file",
                                                                         "/run/nowhere"]
    assert readings.open_to_writing(modes) == [f"0606 {tmp_path}/run/deep/file"]


def test_runs_are_counted_by_their_ends():
    events = [{"time": time, "text": text} for time, text in
              ((1.0, "INFO [TUNNEL_MNGR] MANAGING TUNNELS"), (2.0, "something else"),
               (4.5, "INFO [TUNNEL_MNGR] v_apFqdnMonitor size 3"), (9.0, "INFO [TUNNEL_MNGR] MANAGING TUNNELS"))]
    assert readings.run_seconds(events) == [3.5]


PINGS = """PING 192.168.21.10 (192.168.21.10) from 192.168.11.10 : 56(84) bytes of data.
[100.000000] 64 bytes from 192.168.21.10: icmp_seq=1 ttl=62 time=0.5 ms
[100.500000] 64 bytes from 192.168.21.10: icmp_seq=2 ttl=62 time=0.5 ms
[101.000000] From 192.168.11.1 icmp_seq=3 Destination Host Unreachable
[130.250000] 64 bytes from 192.168.21.10: icmp_seq=60 ttl=62 time=0.5 ms
[130.7"""  # ping is still running


def test_the_gap_is_between_answers_and_not_refusals():
    times = readings.answer_times(PINGS)
    assert times == [100.0, 100.5, 130.25]
    assert readings.longest_gap(times) == 29.75


def test_without_two_answers_the_gap_has_no_end():
    assert readings.longest_gap([]) == readings.longest_gap([100.0]) == float("inf")


@pytest.mark.parametrize("received, holds", [(5, True), (4, False), (15, False)])
def test_every_request_must_be_answered(received, holds):
    assert readings.answered(f"5 packets transmitted, {received} received, 0% packet loss, time 4ms\n", 5) == holds
