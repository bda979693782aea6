#!/bin/bash
# What scripts/cross does for one architecture, in namespaces of its own: cross.sh FOLDER ARCHITECTURE
set -euo pipefail

source scripts/lib/architectures.sh
source scripts/lib/debian_sources.sh
source scripts/lib/narration.sh
source scripts/lib/source_tree.sh

folder=$1 architecture=$2
compiler=$(compilerOf "$architecture") libraries=$(librariesOf "$architecture")
own=$folder/$architecture # and /cross/$architecture inside a root

kTools="ca-certificates ccache cmake debhelper dpkg-dev make ninja-build pkg-config qemu-user-static"

inRoot() { unshare --mount scripts/lib/in_root.sh "$folder" "$@"; }

aptGet() { inRoot "$1" env DEBIAN_FRONTEND=noninteractive apt-get -q -y "${@:2}"; }

# A root has its name only while all in it is whole, so that whatever an interrupted call has left is made again. All of
# them begin as copies of one, which has what none of the architectures changes.
makeBase() {
  rm -rf "$folder/base.new"
  mkdir -p "$folder/packages" "$folder/archives/partial"
  debootstrap --variant=minbase --cache-dir="$folder/packages" bookworm "$folder/base.new"
  mkdir "$folder/base.new/source" "$folder/base.new/cross"
  cp scripts/lib/apt.conf "$folder/base.new/etc/apt/apt.conf.d/cross"
  aptGet base.new update
  # shellcheck disable=SC2086 # words
  aptGet base.new install $kTools
  mv "$folder/base.new" "$folder/base"
}

makeRoot() {
  rm -rf "$own/root.new"
  cp -a "$folder/base" "$own/root.new"
  if [[ $libraries == packages ]]; then
    inRoot "$architecture/root.new" dpkg --add-architecture "$architecture"
    aptGet "$architecture/root.new" update
    aptGet "$architecture/root.new" install "crossbuild-essential-$architecture" \
      {libjsoncpp,libcurl4-openssl,libgtest,libgmock}-dev":$architecture"
  else
    aptGet "$architecture/root.new" install "g++-$compiler"
  fi
  mv "$own/root.new" "$own/root"
}

kLinking=-Wl,--fatal-warnings # nothing is built that a linker warns of

toolchain=(-DCMAKE_SYSTEM_NAME=Linux "-DCMAKE_SYSTEM_PROCESSOR=${compiler%%-*}" "-DCMAKE_C_COMPILER=$compiler-gcc"
  "-DCMAKE_CXX_COMPILER=$compiler-g++")

buildLibraries() {
  # shellcheck disable=SC2016 # expanded inside the root
  local script='set -euo pipefail
    source scripts/lib/debian_sources.sh
    buildSmallLibraries /cross/sources "$@"
    buildLibrary /cross/sources/googletest "$1/googletest" -G Ninja -DCMAKE_INSTALL_PREFIX="$1/installed" "${@:2}"'
  inRoot "$architecture/root" bash -c "$script" - "/cross/$architecture/libraries" "${toolchain[@]}"
}

buildProgram() {
  inRoot "$architecture/root" cmake --preset release -B "/cross/$architecture/build" \
    -DCMAKE_CXX_COMPILER_LAUNCHER=ccache "${toolchain[@]}" "$@"
  inRoot "$architecture/root" cmake --build "/cross/$architecture/build"
  local program
  for program in core/tunnel_mngr tunnelctl/tunnelctl; do
    inRoot "$architecture/root" "$compiler-strip" -o "/cross/$architecture/${program#*/}" \
      "/cross/$architecture/build/$program"
  done
}

# A copy, since dpkg-buildpackage builds in the folder that it stands in, and writes beside it.
buildPackage() {
  rm -rf "$own/package" "$own"/*.deb
  copySourceTree "$own/package/source"
  mv "$own/root" "$own/root.new" # as long as it is changed
  aptGet "$architecture/root.new" --host-architecture "$architecture" --build-profiles cross,nocheck build-dep \
    "/cross/$architecture/package/source"
  mv "$own/root.new" "$own/root"
  inRoot "$architecture/root" env --chdir "/cross/$architecture/package/source" DEB_BUILD_OPTIONS=nocheck \
    DEB_LDFLAGS_APPEND="$kLinking" PATH=/usr/lib/ccache:/usr/sbin:/usr/bin:/sbin:/bin \
    dpkg-buildpackage --no-sign --build=binary --jobs=auto --host-arch "$architecture" --build-profiles=cross,nocheck
  mv "$own/package/"*"_$architecture.deb" "$own"
  rm -rf "$own/package"
}

# Some kernels run some foreign programs themselves, as one for x86-64 does those of i386.
runTests() {
  local emulator=()
  inRoot "$architecture/root" "/cross/$architecture/build/tests/unit_tests" --gtest_list_tests >/dev/null ||
    emulator=("qemu-$(emulatorOf "$architecture")-static" "${sysroot[@]}")
  inRoot "$architecture/root" "${emulator[@]}" "/cross/$architecture/build/tests/unit_tests" --gtest_brief=1 \
    --gtest_output="xml:/cross/$architecture/unit_tests.xml"
}

mkdir -p "$own"
narrate scripts/cross "$own/log"
if [[ ! -d $folder/base ]]; then
  begin "Making the root that the others are copies of"
  makeBase
fi
if [[ ! -d $own/root ]]; then
  begin "Making the root for $architecture"
  makeRoot
fi
options=("-DCMAKE_EXE_LINKER_FLAGS=$kLinking") sysroot=()
if [[ $libraries == sources ]]; then
  begin "Fetching the libraries' sources"
  fetchDebianSources "$folder/sources" libjsoncpp curl googletest
  begin "Building the libraries for $architecture"
  buildLibraries
  sysroot=(-L "/usr/$compiler") # the cross compiler's C library; with Debian's own it must not be mixed
  options=("-DCMAKE_PREFIX_PATH=/cross/$architecture/libraries/installed"
    "-DCMAKE_EXE_LINKER_FLAGS=$kLinking -static-libstdc++ -static-libgcc -Wl,--gc-sections")
fi
begin "Building program, tunnelctl and unit tests for $architecture"
buildProgram "${options[@]}"
if [[ $libraries == packages ]]; then
  begin "Building the package for $architecture"
  buildPackage
fi
begin "Running the unit tests for $architecture"
rm -f "$own/unit_tests.xml"
status=0
runTests || status=$?
[[ ! -e $own/unit_tests.xml ]] || /usr/bin/python3 -B scripts/lib/cross_report.py "$own" >&3
exit $status
