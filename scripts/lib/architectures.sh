# The processors that scripts/cross builds for. To be sourced by a bash script.

# Debian's name, the name of its cross compilers, qemu's name, and where jsoncpp and libcurl come from: from Debian, or
# from its sources where bookworm has compilers for a processor and no libraries.
kArchitectureTable="
arm64   aarch64-linux-gnu   aarch64 packages
armhf   arm-linux-gnueabihf arm     packages
i386    i686-linux-gnu      i386    packages
mipsel  mipsel-linux-gnu    mipsel  packages
s390x   s390x-linux-gnu     s390x   packages
mips    mips-linux-gnu      mips    sources
riscv64 riscv64-linux-gnu   riscv64 sources
"
# shellcheck disable=SC2034 # scripts/cross names them
mapfile -t kArchitectures < <(awk '{ if (NF) print $1 }' <<<"$kArchitectureTable")

isArchitecture() { [[ -n $(compilerOf "$1") ]]; }

# The columns of the table.
compilerOf() { architectureColumn "$1" 2; }
emulatorOf() { architectureColumn "$1" 3; }
librariesOf() { architectureColumn "$1" 4; }

architectureColumn() { awk -v name="$1" -v column="$2" '$1 == name { print $column }' <<<"$kArchitectureTable"; }
