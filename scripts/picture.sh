#!/usr/bin/env bash
# picture.sh: takes the picture of the inspector's page that is in the README.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

[[ $# -eq 0 ]] || { sed -n '2,${/^#/!q; s/^# \{0,1\}//p}' "$0" >&2; exit 2; }
scripts/setup.sh build test
cmake --preset demo >/dev/null
cmake --build --preset demo --target qv-inspector send_hits -- --quiet
export QV_INSPECTOR=build/demo/tools/qv-inspector SEND_HITS=build/demo/examples/send_hits
exec /usr/bin/python3 -B tests/inspector/picture.py docs/inspector.png
