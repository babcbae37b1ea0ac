#!/usr/bin/env bash
# setup.sh GROUP...: sees to it that the Debian packages of these groups of packages.txt are there.
# What is missing is installed; where that cannot be done, it is named, and the status is 1.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

# Prints the packages of the given groups; a group that the list does not know is an error.
packages_of() {
  awk -v groups="$*" '
    BEGIN { split(groups, list); for (i in list) wanted[list[i]] = 1 }
    !/^#/ && ($1 in wanted) { print $2; known[$1] = 1 }
    END { for (g in wanted) if (!(g in known)) { print "setup.sh: no group " g > "/dev/stderr"; exit 2 } }
  ' packages.txt
}

# Prints those of the given packages that are not installed.
missing_of() {
  local installed
  installed=$(dpkg-query --show --showformat '${db:Status-Status} ${Package}\n' "$@" 2>/dev/null |
    awk '$1 == "installed" { print $2 }') || true
  printf '%s\n' "$@" | grep -vxF "${installed:-none}" || true
}

give_up() {
  echo "setup.sh: $1" >&2
  echo "These Debian 12 packages are missing:" >&2
  printf '  %s\n' "${missing[@]}" >&2
  echo "Install them with: apt-get install --no-install-recommends ${missing[*]}" >&2
  exit 1
}

if [[ $# -eq 0 ]]; then
  echo "usage: setup.sh GROUP... (the groups of scripts/packages.txt)" >&2
  exit 2
fi
list=$(packages_of "$@")
mapfile -t packages <<<"$list"
missing=("${packages[@]}")
[[ -n $(command -v dpkg-query) && -n $(command -v apt-get) ]] ||
  give_up "this is not a Debian system, so it cannot be told which packages are installed"
mapfile -t missing < <(missing_of "${packages[@]}")
[[ -n ${missing[*]} ]] || exit 0

as_root=()
if [[ $(id -u) -ne 0 ]]; then
  sudo -n true 2>/dev/null || give_up "packages must be installed by root, and sudo is not at hand"
  as_root=(sudo -n)
fi
echo "Installing ${missing[*]}"
apt() {
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq -o DPkg::Lock::Timeout=120 \
    -o Dpkg::Use-Pty=0 "$@"
}
# What is out of reach shows when the packages are fetched.
apt update || true
apt install --no-install-recommends "${missing[@]}" >/dev/null ||
  give_up "apt-get could not install the packages (see above)"
