#!/usr/bin/env bash
# header_includes.sh INCLUDE_DIRECTORY: the installed headers include each other and the C++
# standard library (headers without a suffix), nothing else.
set -euo pipefail
cd "$1"

if grep -rnE '^[[:space:]]*#[[:space:]]*include' . |
   grep -vE '#include <(QVCore/[A-Za-z_]+\.h|QVPlatform/[A-Za-z/]+\.h|[a-z_]+)>$'; then
  echo "The above are neither the kit's nor the standard library's."
  exit 1
fi
grep -rq '#include <QVPlatform/' QVCore  # there was something to look at
