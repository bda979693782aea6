#!/bin/bash
# Ends as many openvpn processes as the first argument says, and prints how many microseconds that took: one after the
# other ("each"), as the program does it, or all at once ("all").
set -u

for ((i = 0; i < $1; i++)); do
  openvpn &
  children[i]=$!
done
until [[ $(stat -c %s /run/bench/openvpn-ready 2>/dev/null) == "$1" ]]; do sleep 0.01; done

begin=${EPOCHREALTIME/[.,]/}
if [[ $2 == each ]]; then
  for child in "${children[@]}"; do
    kill "$child"
    wait "$child"
  done
else
  kill "${children[@]}"
  wait
fi
echo $((${EPOCHREALTIME/[.,]/} - begin))
