# What a script needs that runs the program in namespaces of its own. To be sourced by a bash script that stands in the
# top folder.

requireRoot() {
  ((EUID == 0)) && return
  echo "Run this as root: the program runs in namespaces of its own, which only root may make." >&2
  return 1
}

# enterOwnRoot SCRIPT [ARGUMENT...]: starts the script over in a chroot that has all it needs (own_root.py); returns where
# that is the case already, as on any machine or container.
enterOwnRoot() {
  if unshare --mount true 2>/dev/null; then return; fi
  exec unshare --mount --propagation unchanged /usr/bin/python3 -B scripts/lib/own_root.py "$@"
}
