#!/usr/bin/env bash
# consumer_with_pkg_config.sh PKG_CONFIG COMPILER LIBRARY_DIRECTORY SOURCE: builds the consumer with
# what the package says of itself, and runs it.
set -euo pipefail
pkg_config=$1 compiler=$2 libraries=$3 source=$4

export PKG_CONFIG_PATH=$libraries/pkgconfig
program=$(mktemp)
trap 'rm -f "$program"' EXIT
read -ra flags <<<"$("$pkg_config" --cflags --libs qvcore)"
"$compiler" -std=c++20 "$source" -o "$program" "${flags[@]}"
"$program"
