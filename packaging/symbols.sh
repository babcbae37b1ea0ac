#!/usr/bin/env bash
# symbols.sh check|accept DIRECTORY...: compares what the shared libraries in these directories export
# with packaging/debian/symbols, where each name has the version that brought it; or writes
# there what they export. What has gone, or has another signature, breaks the applications that are
# built already: then the soname changes, with the major version.
set -euo pipefail
list=$(dirname "${BASH_SOURCE[0]}")/debian/symbols
what=$1
shift

path_of() { find "$@" -maxdepth 1 -name "$library.so.[0-9]" | head -n 1; }

# Prints the names that the library at the path exports, with the version of the interface. With the
# argument "strong" without those of which other libraries have copies, too.
exported() {
  nm -D --defined-only "$1" | awk -v strong="${2:-}" '
    $2 ~ /[VW]/ && strong { next }
    { sub(/@@/, "@", $3); print $3 ~ /@/ ? $3 : $3 "@" $3 }' | LC_ALL=C sort -u
}

# Prints the part of the list that is the library's.
listed() { awk -v name="$library" '/^[^ ]/ { mine = index($1, name ".so.") == 1; next } mine' "$list"; }

# Type information that several libraries may have stands in the one or other build only.
check() {
  local names=$1 gone new
  gone=$(LC_ALL=C comm -13 <(exported "$names") <(listed | awk '{ print $1 }'))
  new=$(LC_ALL=C comm -23 <(exported "$names") <(listed | awk '{ print $1 }') | grep -vE '^_ZT[ISV]' || true)
  [[ -z $gone ]] || { echo "$library exports no longer:"; c++filt <<<"$gone"; }
  [[ -z $new ]] || { echo "$library exports what is not in the list:"; c++filt <<<"$new"; }
  [[ -z $gone$new ]]
}

# Prints the library's part of a new list: a name keeps the version that it has.
renewed() {
  echo "$(basename "$1") libqvcore4 #MINVER#"
  awk -v version="$(readlink "$1" | sed 's/.*\.so\.//')" '
    FILENAME == ARGV[1] { since[$1] = $2; next }
    { print " " $1, ($1 in since) ? since[$1] : version }' <(listed) <(exported "$1" strong)
}

status=0
new_list=$(mktemp)
trap 'rm -f "$new_list"' EXIT
for library in libQVCore libQVPlatform; do
  file=$(path_of "$@")
  [[ -n $file ]] || { echo "symbols.sh: no $library.so.* in $*" >&2; exit 2; }
  case $what in
    check) check "$file" || status=1 ;;
    accept) renewed "$file" >>"$new_list" ;;
    *) sed -n '2,${/^#/!q; s/^# \{0,1\}//p}' "$0" >&2; exit 2 ;;
  esac
done
[[ $what != accept ]] || cat "$new_list" >"$list"
[[ $status -eq 0 ]] || echo "If it is meant: packaging/symbols.sh accept build/dev/QVCore build/dev/QVPlatform"
exit $status
