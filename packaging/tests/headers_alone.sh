#!/usr/bin/env bash
# headers_alone.sh INCLUDE_DIRECTORY COMPILER...: every installed header compiles by itself, without a
# warning, with nothing but the installed headers to be found. Each compiler after the first finds the
# same standard library, so what a header forgot to include has shown: it gets all of them at once.
set -euo pipefail
cd "$1"
shift

compile() {
  "${@:2}" -std=c++20 -fsyntax-only -x c++ -I . \
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror - <<<"$1" || { echo "$1 fails"; return 1; }
}
export -f compile

find . -name '*.h' -printf '#include <%P>\0' |
  xargs -0 -I HEADER -P "$(nproc)" bash -c 'compile "$@"' bash HEADER "$1"
for compiler in "${@:2}"; do
  compile "$(find . -name '*.h' -printf '#include <%P>\n')" "$compiler"
done
