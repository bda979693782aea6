# Installs the Debian packages that a task needs and that are missing. To be sourced by a bash script.

declare -A kPackages=(
  [build]="g++ cmake ninja-build ccache pkg-config libjsoncpp-dev libcurl4-openssl-dev"
  [sandbox]="python3 iproute2 mount openssl strongswan-starter strongswan-charon libstrongswan-standard-plugins libcharon-extra-plugins"
  [test]="busybox-static libgtest-dev libgmock-dev python3-hypothesis python3-jsonschema python3-pytest python3-pytest-xdist strace systemd valgrind curl jq openvpn iputils-ping"
  [monitoring]="prometheus"
  [lab]="python3 iproute2 iputils-ping openssl openvpn strongswan-starter strongswan-charon libstrongswan-standard-plugins libcharon-extra-plugins tcpdump"
  [machine]="busybox-static kmod qemu-system-x86"
  [boot]="python3 openssl debootstrap e2fsprogs"
  [sources]="ca-certificates debian-archive-keyring dpkg-dev"
  [static]="g++ cmake ninja-build ccache"
  [cross]="debootstrap mount python3"
  [fuzz]="clang libclang-rt-dev llvm"
  [bench]="libbenchmark-dev python3 python3-jsonschema python3-matplotlib curl jq strace"
  [coverage]="clang libclang-rt-dev llvm"
  [package]="debhelper devscripts dpkg-dev fakeroot libgmock-dev libgtest-dev lintian python3-jsonschema python3-pytest"
  [install]="debootstrap mount python3"
  [check]="clang clang-format clang-tidy cppcheck shellcheck groff-base python3 python3-jsonschema"
)

isInstalled() {
  [[ $(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null) == installed* ]]
}

# Makes sure that the packages of the named sets are there. Changes nothing when they are; otherwise it installs what is
# missing, or says what that is and returns 1. It never removes a package to make room for another.
requirePackages() {
  local set package missing=()
  for set in "$@"; do
    for package in ${kPackages[$set]}; do
      isInstalled "$package" || missing+=("$package")
    done
  done
  if ((${#missing[@]} == 0)); then return 0; fi

  if ! command -v apt-get >/dev/null || ((EUID != 0)); then
    echo "These Debian packages are missing: ${missing[*]}; install them, or run this as root where there is apt-get" >&2
    return 1
  fi
  echo "Installing ${missing[*]}"
  installPackages "${missing[@]}"
}

# Nobody is asked anything, and what apt-get prints is of interest only when it fails. What was wrong is one sentence.
installPackages() {
  local log status=0
  log=$(mktemp)
  local aptGet=(env DEBIAN_FRONTEND=noninteractive apt-get -q -o DPkg::Lock::Timeout=300)
  { "${aptGet[@]}" update && "${aptGet[@]}" install -y --no-install-recommends --no-remove "$@"; } \
    >"$log" 2>&1 </dev/null || status=1
  ((status == 0)) || { cat "$log" && echo "apt-get could not install: $*" >&2; }
  rm -f "$log"
  return $status
}
