#!/usr/bin/env bash
# exported_symbols.sh LIBRARY_DIRECTORY INCLUDE_DIRECTORY: what the libraries export belongs to a
# class, function or constant that an installed header names.
set -euo pipefail
libraries=$1 headers=$2

# Prints the name that a symbol belongs to: QVPlatform::Value::count() const is Value's, and so are
# its vtable and type information.
owners() {
  nm -DC --defined-only "$1" | cut -d' ' -f3- | sed 's/@@QVCORE_.*//; /^QVCORE_/d' |
    sed -E 's/^(.* for |.*thunk to )//; s/^QVPlatform::([A-Za-z_]+).*/\1/; s/^(I?QV[A-Za-z_]+|kQV[A-Za-z_]+).*/\1/' |
    sort -u
}

status=0
for library in "$libraries"/libQVCore.so "$libraries"/libQVPlatform.so; do
  names=$(owners "$library")
  [[ $(wc -l <<<"$names") -gt 20 ]] || { echo "$library exports next to nothing"; status=1; }
  while read -r name; do
    grep -rqwF -e "$name" "$headers" && continue
    echo "$library exports what no public header names: $name"
    status=1
  done <<<"$names"
done
exit $status
