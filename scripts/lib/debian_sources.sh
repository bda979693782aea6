# Debian's sources of libraries, and the smallest builds of jsoncpp and libcurl. To be sourced by a bash script.

# tied COMMAND...: runs it, and has it end when this script is killed. ninja takes its compilers along then, which cmake
# would not have it do.
tied() { setpriv --pdeathsig TERM "$@"; }

# fetchDebianSources FOLDER PACKAGE...: leaves each package's source, with Debian's patches, in FOLDER/PACKAGE. apt-get
# gets lists, cache and state of its own below FOLDER, so nothing on the machine changes and nobody need be root. They
# come from where the machine has its packages. What is there already is not fetched again.
fetchDebianSources() {
  local folder=$1 package mirror missing=()
  shift
  for package in "$@"; do
    [[ -d $folder/$package ]] || missing+=("$package")
  done
  ((${#missing[@]} > 0)) || return 0

  mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Identifier: Packages' 'Codename: bookworm' | sed -n 1p)
  [[ -n $mirror ]] ||
    { echo "Error: apt-get knows no packages of Debian 12; apt-get update fetches the lists" && return 1; }
  rm -rf "$folder"/*.new
  mkdir -p "$folder"/apt/{lists,archives,preferences.d}/partial
  echo "deb-src [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $mirror bookworm main" \
    >"$folder/apt/sources.list"
  local apt=$folder/apt
  local options=(-q -o Dir::Etc::SourceList="$apt/sources.list" -o Dir::Etc::SourceParts=-
    -o Dir::Etc::Preferences=- -o Dir::Etc::PreferencesParts=- -o Dir::State::Lists="$apt/lists" -o Dir::Cache="$apt"
    -o Dir::State::status=/dev/null -o APT::Sandbox::User=)
  tied apt-get "${options[@]}" -o APT::Update::Error-Mode=any update
  for package in "${missing[@]}"; do
    mkdir "$folder/$package.new"
    tied env --chdir "$folder/$package.new" apt-get "${options[@]}" --download-only source "$package"
    tied dpkg-source -x "$folder/$package.new"/*.dsc "$folder/$package.new/unpacked"
    mv "$folder/$package.new/unpacked" "$folder/$package"
    rm -r "$folder/$package.new"
  done
}

# Has the linker leave out each function that nobody calls, with -Wl,--gc-sections: a third of a static executable.
kSeparate="-ffunction-sections -fdata-sections"

# buildSmallLibraries SOURCES FOLDER CMAKE_ARGUMENT...: jsoncpp and libcurl for static linking, optimised for size, in
# FOLDER/installed. Of libcurl there are HTTP, UNIX sockets, and the texts of its errors, which are in the log. jsoncpp's
# own code, and so its writer, uses none of the C++ library's streams.
buildSmallLibraries() {
  local sources=$1 folder=$2
  shift 2
  local common=(-G Ninja -DCMAKE_BUILD_TYPE=MinSizeRel -DBUILD_SHARED_LIBS=OFF
    -DCMAKE_INSTALL_PREFIX="$folder/installed" -DCMAKE_INSTALL_LIBDIR=lib
    "-DCMAKE_C_FLAGS=$kSeparate" "-DCMAKE_CXX_FLAGS=$kSeparate" -DCMAKE_C_COMPILER_LAUNCHER=ccache
    -DCMAKE_CXX_COMPILER_LAUNCHER=ccache "$@")
  leaveStreamsOut "$sources/libjsoncpp" "$folder/jsoncpp/source"
  buildLibrary "$folder/jsoncpp/source" "$folder/jsoncpp/build" "${common[@]}" -DJSONCPP_WITH_TESTS=OFF \
    -DJSONCPP_WITH_POST_BUILD_UNITTEST=OFF -DBUILD_OBJECT_LIBS=OFF -DBUILD_STATIC_LIBS=ON
  local options=() option
  for option in CURL_ENABLE_SSL CURL_USE_LIBSSH2 CURL_USE_LIBPSL USE_LIBIDN2 CURL_BROTLI CURL_ZSTD ENABLE_IPV6 \
    ENABLE_THREADED_RESOLVER BUILD_CURL_EXE BUILD_TESTING CURL_WERROR PICKY_COMPILER; do
    options+=("-D$option=OFF")
  done
  for option in ALTSVC COOKIES CRYPTO_AUTH DOH GETOPTIONS HSTS HTTP_AUTH LIBCURL_OPTION MIME NETRC NTLM PARSEDATE \
    PROGRESS_METER PROXY SHUFFLE_DNS SOCKETPAIR; do
    options+=("-DCURL_DISABLE_$option=ON")
  done
  buildLibrary "$sources/curl" "$folder/curl" "${common[@]}" -DHTTP_ONLY=ON -DCURL_ZLIB=OFF "${options[@]}"
}

# leaveStreamsOut SOURCE COPY: jsoncpp's source without the C++ library's streams, but for interfaces that read from one.
leaveStreamsOut() {
  rm -rf "$2"
  mkdir -p "${2%/*}"
  cp -a "$1" "$2"
  sed -i '/^#include <iostream>$/d' "$2"/src/lib_json/*.cpp
  sed -i -e '/^using IStringStream =$/,/^using OStream = /{/^using OStream = /r scripts/lib/text_streams.h' -e 'd}' \
    -e '/^#include <sstream>$/i #include <cstdlib>' "$2/include/json/config.h"
}

buildLibrary() {
  local source=$1 folder=$2
  shift 2
  tied cmake -S "$source" -B "$folder" "$@"
  tied ninja -C "$folder" -j "$(nproc)" install
}
