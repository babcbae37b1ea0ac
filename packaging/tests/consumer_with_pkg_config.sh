#!/usr/bin/env bash
# consumer_with_pkg_config.sh PKG_CONFIG COMPILER LIBRARY_DIRECTORY SOURCE [--static]: builds the
# consumer with what the package says of itself, and runs it. Without type information it is refused.
set -euo pipefail
pkg_config=$1 compiler=$2 libraries=$3 source=$4
shift 4

export PKG_CONFIG_PATH=$libraries/pkgconfig
program=$(mktemp)
trap 'rm -f "$program"' EXIT
read -ra flags <<<"$("$pkg_config" --cflags --libs "$@" qvcore)"
"$compiler" -std=c++20 "$source" -o "$program" "${flags[@]}"
"$program"

refusal=$("$compiler" -std=c++20 -fsyntax-only -fno-rtti "$source" "${flags[@]}" 2>&1) && exit 1
grep -q 'needs run-time type information' <<<"$refusal"
