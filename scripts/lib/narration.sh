# For a script that takes minutes: says on the screen what it begins, and sends all that is printed to a log. Where it
# fails, one sentence says at what, what was said last, and where the rest is to be read. To be sourced by a bash script
# that has "set -e".

# narrate NAME LOG: from here on. NAME is what the sentence begins with.
narrate() {
  narrator=$1 narrationLog=$2 doing=
  exec 3>&1 4>&2 >"$narrationLog" 2>&1 </dev/null
  trap '(($? == 0)) || { explainFailure; exit 1; }' EXIT
}

begin() {
  doing=$1
  echo "$doing"
  echo "$doing" >&3
}

# What apt-get, compilers, CMake and ninja call an error, and not each mention of one, as in libgpg-error0 or strerror_r.
explainFailure() {
  local reason error='^E: |(^|[ :])[Ee]rror( at |:)|FAILED'
  reason=$(grep -E "$error" "$narrationLog" || grep . "$narrationLog") || reason="nothing was said"
  echo "$narrator: failed at: $doing: $(tail -n 1 <<<"$reason" | cut -c -200); all of it is in $narrationLog" >&4
}
