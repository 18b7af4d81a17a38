#!/usr/bin/env bash
# Unpacks the ARM libraries that the build needs and the cross compiler does not bring.  The machine's own packages stay
# as they are: no foreign architecture is added, and nothing is installed.
#   tools/arm/sysroot.sh FOLDER      FOLDER/apt holds what was fetched, FOLDER/sysroot what was in it
set -euo pipefail

packages=(libexpat1 libexpat1-dev libgtest-dev)
[ $# -eq 1 ] || { echo "usage: $0 FOLDER" >&2; exit 2; }
mkdir --parents "$1"
folder=$(cd "$1" && pwd)
apt=$folder/apt
sysroot=$folder/sysroot
[ "$(cat "$sysroot/packages" 2>/dev/null)" != "${packages[*]}" ] || exit 0

# A separate package system, which knows one architecture and no installed packages.
mkdir --parents "$apt/lists/partial" "$apt/archives/partial"
touch "$apt/status"
options=(--quiet --quiet
  --option APT::Architecture=armhf --option APT::Architectures::=armhf --option APT::Sandbox::User=
  --option "Dir::State::lists=$apt/lists" --option "Dir::State::status=$apt/status"
  --option "Dir::Cache::archives=$apt/archives" --option Dir::Cache::pkgcache= --option Dir::Cache::srcpkgcache=)

echo "Fetching for ARM: ${packages[*]}"
# An index that cannot be fetched does no harm as long as the packages are found.
apt-get "${options[@]}" update >"$apt/log" 2>&1 || true
rm --recursive --force "$sysroot" "$apt"/*.deb
mkdir --parents "$sysroot"
(cd "$apt" && apt-get "${options[@]}" download "${packages[@]}") >>"$apt/log" 2>&1 || { tail --lines=20 "$apt/log" >&2; exit 1; }
for package in "$apt"/*.deb; do dpkg-deb --extract "$package" "$sysroot"; done

# One folder of libraries, as on the ARM machine.
cp --archive "$sysroot/lib/." "$sysroot/usr/lib"
rm --recursive "$sysroot/lib"
ln --symbolic usr/lib "$sysroot/lib"

# A link to an absolute path of the ARM machine must lead into this folder instead.
find "$sysroot" -type l -lname '/*' -printf '%p %l\n' | while read -r link target; do
  ln --symbolic --relative --force --no-dereference "$sysroot$target" "$link"
done
echo "${packages[*]}" >"$sysroot/packages"
