#!/usr/bin/env bash
# cross.sh [--quick] arm64|armhf|s390x: builds the kit for that processor and runs its tests in an
# emulator. Needs what else is needed on this machine (group "cross" of packages.txt), and fetches the
# processor's own libraries with apt into build/cross-<processor>/, where apt has directories of its own: on this
# machine nothing else changes. --quick builds and runs what reads and writes files alone. The status is 77 when
# the packages are out of reach.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

fail() {
  echo "cross.sh: $1" >&2
  exit 1
}

quick=
[[ ${1-} != --quick ]] || { quick=1; shift; }
architecture=${1-}
case $architecture in
  arm64) triplet=aarch64-linux-gnu emulator=qemu-aarch64-static ;;
  armhf) triplet=arm-linux-gnueabihf emulator=qemu-arm-static ;;
  s390x) triplet=s390x-linux-gnu emulator=qemu-s390x-static ;;
  *) sed -n '2,${/^#/!q; s/^# \{0,1\}//p}' "$0" >&2; exit 2 ;;
esac
place=$PWD/build/cross-$architecture
sysroot=$place/sysroot

# The tests of what an emulator of one process cannot do, by what they would need of it.
cannot=(
  DeathTest KeepsItsPlaces  # to start or to copy the program itself
  ProhibitRule  # the kernel's messages about routing rules
  BeDestroyedWhileItRuns OnOneThreadThatGoes  # the last two signals, which it does not know
  PassesOverConnections SendsNothingTwice  # how far an answer has come (TCP_INFO), of which it tells nothing
  HearsOfSIGTERM FaultsOneAtATime  # more speed: the one is to be in time, the other starts 2,000 processes
  Package  # programs of this machine, such as Python, that load the library
)
# What tells apart machines of another byte order and word size.
files='^(PropertyList|KeyedArchiver|KeyedListArchiver|FuzzCorpus|JSON|String|QVUtils)'

# apt with directories of its own, for the other processor, as if nothing were installed.
foreign_apt() {
  apt-get -qq -o Dir::State="$place/apt/state" -o Dir::State::status="$place/apt/status" \
    -o Dir::Cache="$place/apt/cache" -o APT::Architecture="$architecture" \
    -o APT::Architectures="$architecture" -o Debug::NoLocking=true -o APT::Sandbox::User= \
    -o Acquire::Languages=none -o Acquire::Retries=3 "$@"
}

# The libraries among the packages that the build and the tests need.
wanted_packages() {
  awk '($1 == "build" || $1 == "test") && $2 ~ /-dev$/ && $2 !~ /clang/ { print $2 }' \
    scripts/packages.txt
  echo libstdc++-12-dev
}

# Links that lead to the root of the system are to lead to that of the sysroot.
mend_links() {
  find "$sysroot" -type l -lname '/*' -printf '%p\t%l\n' | while IFS=$'\t' read -r link target; do
    ln -sfnr "$sysroot$target" "$link"
  done
}

make_sysroot() {
  local list packages=()
  list=$(wanted_packages)
  [[ $list != "$(cat "$place/packages" 2>/dev/null)" ]] || return 0
  rm -rf "$sysroot" "$place/apt"
  mkdir -p "$place/apt/state/lists/partial" "$place/apt/cache/archives/partial" "$sysroot/usr/lib"
  : >"$place/apt/status"
  ln -s usr/lib "$sysroot/lib"
  foreign_apt update || true  # what is out of reach shows when the packages are fetched
  mapfile -t packages <<<"$list"
  foreign_apt install --yes --no-install-recommends --download-only "${packages[@]}" >/dev/null || {
    echo "cross.sh: apt-get could not fetch packages for $architecture (see above)" >&2
    exit 77
  }
  local package
  for package in "$place"/apt/cache/archives/*.deb; do
    dpkg-deb --fsys-tarfile "$package" | tar -x -C "$sysroot" --keep-directory-symlink
  done
  rm -rf "$place/apt"
  mend_links
  printf '%s\n' "$list" >"$place/packages"
}

configure() {
  export PKG_CONFIG_SYSROOT_DIR=$sysroot
  export PKG_CONFIG_LIBDIR=$sysroot/usr/lib/$triplet/pkgconfig:$sysroot/usr/share/pkgconfig
  cmake -S . -B "$place/build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/cross.cmake" \
    -DQV_CROSS_TRIPLET="$triplet" -DCMAKE_SYSROOT="$sysroot" -DCMAKE_CXX_FLAGS=-O1 \
    -DCMAKE_COMPILE_WARNING_AS_ERROR=ON -DQVCORE_BUILD_EXAMPLES=OFF \
    -DCMAKE_CROSSCOMPILING_EMULATOR="$emulator;-L;$sysroot" >/dev/null ||
    fail "the build for $architecture could not be configured"
}

run_tests() {
  local tests=(--exclude-regex "$(IFS='|'; echo "${cannot[*]}")") targets=()
  if [[ -n $quick ]]; then
    tests+=(--tests-regex "$files")
    mapfile -t targets < <(find tests -maxdepth 1 -name '*Tests.cpp' -printf '%f\n' |
      grep -E "$files" | sed 's/\.cpp$//')
  fi
  cmake --build "$place/build" ${targets[@]+--target "${targets[@]}"} -- --quiet ||
    fail "the build for $architecture failed"
  ctest --test-dir "$place/build" --parallel "$(nproc)" --output-on-failure "${tests[@]}" ||
    fail "tests failed on $architecture"
}

scripts/setup.sh cross
mkdir -p "$place"
make_sysroot
configure
run_tests
