#!/usr/bin/env bash
# uninstall.sh CMAKE BUILD: after an installation and its removal nothing is left of it, and what
# somebody else put beside it is.
set -euo pipefail
cmake=$1 build=$2
DESTDIR=$(mktemp -d)
export DESTDIR
trap 'rm -rf "$DESTDIR"' EXIT

mkdir -p "$DESTDIR/usr/local/include/QVCore"
touch "$DESTDIR/usr/local/include/QVCore/of_another"
"$cmake" --install "$build" --prefix /usr/local >/dev/null
[[ $(find "$DESTDIR" -type f | wc -l) -gt 50 ]]
"$cmake" --build "$build" --target uninstall >/dev/null
left=$(find "$DESTDIR" -not -type d -o -name 'QV*' | sort)
diff <(printf '%s\n' "$DESTDIR"/usr/local/include/QVCore{,/of_another}) - <<<"$left"
