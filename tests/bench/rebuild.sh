#!/bin/sh
# What one would write in place of the program: the same requests, commands and files of one tunnel management run, with
# curl and jq. It asks jq once per document and starts no program per tunnel but those that the tunnels need.
set -u

separator=$(printf '\037')
filters=$(cat "$(dirname "$0")/rebuild.jq") || exit 1

wan=
addresses={}
networks=[]

request() {
  curl --silent --fail --unix-socket /var/run/api/http.sock "http://localhost$1"
}

# rows DOCUMENT FILTER: what the filter of rebuild.jq makes of the document, the columns of a row parted by $separator.
rows() {
  printf '%s' "$1" | jq -r --arg wan "$wan" --argjson addresses "$addresses" --argjson networks "$networks" \
    "$filters $2"
}

# Reads "F PATH" and, behind it, "L LINE" for each line of the file.
writeFiles() {
  awk '/^F/ { if (path) close(path); path = substr($0, 3); printf "" >path } /^L/ { print substr($0, 3) >path }'
}

# Reads "F NAME" and "L LINE" for each line of the tunnel's text, writes the files, and prints NAME and DIRECTORY of
# each tunnel.
writeOpenvpnFiles() {
  awk -v separator="$separator" -v verb="$1" '
    function arguments(text,   i, result, count, words) {
      count = split(text, words)
      for (i = 2; i <= count; i++) result = result (i > 2 ? " " : "") words[i]
      return result
    }
    function indented(text, setting) {
      match(text, /^[ \t]*/)
      return substr(text, 1, RLENGTH) setting
    }
    function finish(   i, path, words, device, directory, seen) {
      if (name == "") return
      for (i = lines; i >= 1; i--) {
        first[i] = split(line[i], words) ? words[1] : ""
        if (first[i] == "dev") { device = arguments(line[i]); seen = 1 }
        if (first[i] == "client-config-dir") directory = arguments(line[i])
      }
      path = "/var/run/openvpn_" name ".conf"
      printf "" >path
      settings["dev"] = "dev " substr(device name, 1, 15)
      settings["verb"] = "verb " verb
      hasVerb = 0
      for (i = 1; i <= lines; i++) {
        if (first[i] == "verb") hasVerb = 1
        print ((first[i] in settings) ? indented(line[i], settings[first[i]]) : line[i]) >path
      }
      if (!hasVerb) print settings["verb"] >path
      close(path)
      print name separator directory
    }
    /^F/ { finish(); name = substr($0, 3); lines = 0 }
    /^L/ { line[++lines] = substr($0, 3) }
    END { finish() }'
}

listing=$(ip tunnel) || exit 1
printf '%s\n' "$listing" | while read -r name mode _; do
  name=${name%:}
  case "$mode $name" in
    "gre/ip gre0" | "gre/ip tunl0") ;;
    "gre/ip "*)
      ip link set "$name" down
      ip tunnel del "$name"
      ;;
  esac
done

openvpnTunnels=$(request '/api?fields=ovpnTunnels') || exit 1
syslog=$(request '/api?fields=syslog') || exit 1
verb=$(rows "$syslog" verb)
openvpn=$(rows "$openvpnTunnels" openvpnTexts | writeOpenvpnFiles "$verb")

ipsec stop 2>&1
wans=$(request '/api/waninfo/wans') || exit 1
wan=$(rows "$wans" currentWan)
[ -n "$wan" ] || exit 0

configuration=$(request '/api?fields=greTunnels,ipsecTunnels,ni') || exit 1

addresses=$(rows "$configuration" hosts | while IFS=$separator read -r host; do
  case $host in
    *[!0-9.]*) address=$(getent --no-addrconfig ahostsv4 "$host" | awk '{ print $1; exit }') ;;
    *) address=$host ;;
  esac
  printf '"%s":"%s"\n' "$host" "$address"
done | paste -sd , -)
addresses="{$addresses}"

# jq has no bitwise operators.
networks=$(rows "$configuration" lanAddresses | while IFS=".$separator" read -r a b c d m n o p; do
  prefix=0
  for byte in "$m" "$n" "$o" "$p"; do
    while [ "$byte" -gt 0 ]; do
      prefix=$((prefix + byte % 2))
      byte=$((byte / 2))
    done
  done
  printf '"%s.%s.%s.%s/%s"\n' $((a & m)) $((b & n)) $((c & o)) $((d & p)) $prefix
done | paste -sd , -)
networks="[$networks]"

rows "$configuration" greRows | while IFS=$separator read -r name remote ttl address routes; do
  ip tunnel add "$name" mode gre remote "$remote" local "$wan" ttl "$ttl"
  ip link set "$name" up
  [ -z "$address" ] || ip addr add "$address" dev "$name"
  for route in $routes; do ip route add "$route" dev "$name"; done
done

rm -rf /var/run/ipsec/cacerts/* /var/run/ipsec/certs/* /var/run/ipsec/private/*
rows "$configuration" ipsecFiles | writeFiles
if [ "$(rows "$configuration" ipsecCount)" -gt 0 ]; then
  chmod 0644 /var/run/ipsec/ipsec.conf /var/run/ipsec/ipsec.secrets
  ipsec restart
  sleep 1
fi

firewall --init

printf '%s\n' "$openvpn" | while IFS=$separator read -r name directory; do
  [ -n "$name" ] || continue
  if [ -n "$directory" ] && ! [ -d "$directory" ]; then mkdir -p "$directory"; fi
  openvpn --config "/var/run/openvpn_$name.conf" --status "/var/run/openvpn_$name.status" 1 --syslog openvpn &
done
