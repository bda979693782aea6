#!/bin/bash
# What one would type in place of `tunnelctl status`: the configured GRE and IPsec tunnels, each with its state and bytes.
# It knows fewer states, no reasons, no addresses or routes, no daemon, and nothing of OpenVPN.
set -euo pipefail

curl -s --unix-socket /var/run/api/http.sock "http://localhost/api?fields=greTunnels,ipsecTunnels,ni" |
  jq -r --slurpfile devices <(ip -j -s -d addr) --rawfile service <(ipsec statusall) '
    ($devices[0] | map({key: .ifname, value: .}) | from_entries) as $byName
    | ($service | split("\n") | map(select(contains("}:  INSTALLED")) | split("{")[0]) | map({key: ., value: true})
        | from_entries) as $installed
    | ($service | split("\n") | map(select(contains(":   child:")) | split(":")[0])) as $connections
    | ($connections | map({tunnel: sub("(_[0-9]+){5}$"; ""), connection: .}) | group_by(.tunnel)
        | map({key: .[0].tunnel, value: map(.connection)}) | from_entries) as $byTunnel
    | .result
    | (.greTunnels[] | select(.enabled) | (.name | gsub(" "; "_")) as $name | $byName[$name] as $device
        | ["gre", $name, if $device.flags | index("UP") then "up" else "down" end,
           $device.stats64.rx.bytes, $device.stats64.tx.bytes]),
      (.ipsecTunnels[] | select(.enabled) | (.name | gsub(" "; "_")) as $name | ($byTunnel[$name] // []) as $expected
        | ["ipsec", $name, if ($expected | length > 0) and all($expected[]; $installed[.]) then "up" else "down" end])
    | map(tostring) | join(" ")'
