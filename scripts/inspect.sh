#!/usr/bin/env bash
# inspect.sh [OPTION...]: builds the hit inspector, starts it with these options of qv-inspector, and
# has the core send it a sample session, so that there is something to see. Ctrl-C ends it. With
# options of one's own, such as --rules, the sample's rules are left out.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

sample=tools/inspector/sample
[[ $# -gt 0 ]] || set -- --rules "$sample/rules.json"
container=$(mktemp -d)
trap 'rm -rf "$container"; [[ -z ${inspector_PID:-} ]] || kill "$inspector_PID" 2>/dev/null || true' EXIT

scripts/setup.sh build
cmake --preset demo >/dev/null
echo "Building (a few minutes the first time)"
cmake --build --preset demo --target qv-inspector send_hits -- --quiet

coproc inspector { exec build/demo/tools/qv-inspector "$@"; }
read -r collector <&"${inspector[0]}" || exit 1
read -r page <&"${inspector[0]}"
collector=${collector##* }
sed "s|COLLECTOR|$collector|" "$sample/session.tsv" |
  build/demo/examples/send_hits --assume-network --quiet --container "$container" || true
echo "Send hits to $collector"
echo "See them at  ${page##* }"
echo "Ctrl-C ends it"
wait "$inspector_PID"
