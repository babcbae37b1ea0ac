#!/usr/bin/env bash
# headers_alone.sh INCLUDE_DIRECTORY COMPILER: every installed header compiles by itself, without a
# warning, with nothing but the installed headers to be found.
set -euo pipefail
cd "$1"
export compiler=$2

compile() {
  echo "#include <$1>" | "$compiler" -std=c++20 -fsyntax-only -x c++ -I . \
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror - || { echo "$1 fails"; return 1; }
}
export -f compile

find . -name '*.h' -printf '%P\0' | xargs -0 -I HEADER -P "$(nproc)" bash -c 'compile HEADER'
