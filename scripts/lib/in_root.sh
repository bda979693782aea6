#!/bin/bash
# Runs a command with another root: in_root.sh FOLDER ROOT COMMAND..., where ROOT is a root in FOLDER. The command sees
# FOLDER as /cross and this source tree as /source, where it starts. Its mounts are in a namespace that the caller has
# made for it (unshare(1)), and end with it.
set -euo pipefail

root=$1/$2
mount --bind "$root" "$root" # a mount point, so that the command can have mounts of its own in turn
mount --rbind /dev "$root/dev"
mount -t tmpfs tmpfs "$root/dev/shm"
mount -t proc proc "$root/proc"
mount --bind "$1" "$root/cross"
mount --bind "$PWD" "$root/source"
cp --remove-destination /etc/resolv.conf "$root/etc/resolv.conf"
export CCACHE_DIR=/cross/ccache CCACHE_SLOPPINESS=pch_defines,time_macros LC_ALL=C.UTF-8
# shellcheck disable=SC2016 # expanded inside
exec chroot "$root" bash -c 'cd /source && exec "$@"' - "${@:3}"
