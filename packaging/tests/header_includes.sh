#!/usr/bin/env bash
# header_includes.sh INCLUDE_DIRECTORY SOURCE_DIRECTORY: the headers that lie directly in a room are
# installed, and no other; they include each other and the C++ standard library (headers without a
# suffix), nothing else.
set -euo pipefail
cd "$1"

installed=$(find QVCore QVConvenience QVPlatform -name '*.h' | sort)
public=$(cd "$2" && { find QVPlatform -maxdepth 2 -name '*.h'; cd QVCore && find QVCore QVConvenience -maxdepth 1 -name '*.h'; } | sort)
diff <(echo "$installed") <(echo "$public") || { echo "< is installed, > is public"; exit 1; }

if grep -rnE '^[[:space:]]*#[[:space:]]*include' . |
   grep -vE '#include <((QVCore|QVConvenience)/[A-Za-z_]+\.h|QVPlatform/[A-Za-z/]+\.h|[a-z_]+)>$'; then
  echo "The above are neither the kit's nor the standard library's."
  exit 1
fi
grep -rq '#include <QVPlatform/' QVCore  # there was something to look at
