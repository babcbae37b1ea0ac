#!/usr/bin/env bash
# check.sh: in a bare Debian 12 that has a compiler and pip, with the packages beside this file: they can
# be installed, an application is built with them and runs, the Python package finds the library, and
# nothing stays when they are removed.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
export HOME=$PWD/home  # of the applications
names=(libqvcore4 libqvcore-dev qvcore-webkit qvcore-tools)

# The paths of the whole system that may be a package's.
paths() { find / -xdev \( -path /check -o -path /proc -o -path /sys \) -prune -o -print | sort; }
apt() { DEBIAN_FRONTEND=noninteractive apt-get -qq -y -o Dpkg::Use-Pty=0 "$@" >apt.log || { cat apt.log; false; }; }

paths >before
apt install --no-install-recommends ./packages/*.deb
for name in "${names[@]}"; do dpkg -L "$name"; done | sort -u >installed

cmake -S consumer -B found >/dev/null
cmake --build found >/dev/null
found/consumer
c++ -std=c++20 consumer/main.cpp -o with_pkg_config $(pkg-config --cflags --libs qvcore)
./with_pkg_config
ldd found/consumer | grep -q '=> \(/usr\)\?/lib/[^/]*/libQVCore.so.4 '
for tool in qv-soak qv-inspector; do
  "$tool" --help >/dev/null
  test -s "/usr/share/man/man1/$tool.1.gz"
done
pip install --quiet --root-user-action=ignore --no-index --no-build-isolation --target site ./python
PYTHONPATH=site python3 -c 'import qvcore; print(qvcore.Kit("org.example.check").version)'

apt purge "${names[@]}"
paths >after
left=$(comm -12 installed after | comm -23 - before)
left+=$(comm -13 before after | grep -i '/[^/]*qv[^/]*$' || true)
[[ -z $left ]] || { echo "What stays: $left"; exit 1; }
echo "Installed $(wc -l <installed) paths, built and ran a consumer, had pip install the Python package, and removed all."
