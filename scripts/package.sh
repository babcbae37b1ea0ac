#!/usr/bin/env bash
# package.sh [--check]: builds the Debian packages, in build/package/packages. With --check lintian
# looks at them, and they are installed into a bare Debian 12, where a consumer is built and runs, and
# where pip installs the Python package, which finds the library; then they are removed again. That
# needs Debian's archive, and root or user namespaces.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

[[ $# -eq 0 || $* == --check ]] || { sed -n '2,${/^#/!q; s/^# \{0,1\}//p}' "$0" >&2; exit 2; }
packages=build/package/packages

# Each in another directory than what `cmake --install` would take, with Debian's prefix and its way
# of finding libraries: by the loader's own path, and not by one that a file names.
build() {
  cmake --preset install -B build/package -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_SKIP_INSTALL_RPATH=ON \
    -DQVCORE_BUILD_TOOLS=ON -DQVCORE_WEB_ENGINE=ON >/dev/null
  cmake --build build/package -- --quiet
  packaging/symbols.sh check build/package/QVCore build/package/QVPlatform
  rm -rf "$packages"
  (cd build/package && cpack >cpack.log) || { cat build/package/cpack.log; return 1; }
  ls "$packages"/*.deb
}

# The root is thrown away when it has been looked at.
check() {
  lintian --fail-on error --tag-display-limit 0 "$packages"/*.deb
  mmdebstrap --quiet --variant=apt --include=g++,make,cmake,pkg-config,python3-pip,python3-setuptools,python3-wheel \
    --customize-hook="mkdir \"\$1/check\"" \
    --customize-hook="copy-in $packages packaging/consumer packaging/debian/check.sh python /check" \
    --customize-hook='chroot "$1" env -i PATH="$PATH" bash /check/check.sh' \
    bookworm /dev/null
}

scripts/setup.sh build web package
build
[[ $# -eq 0 ]] || check
