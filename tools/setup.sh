#!/usr/bin/env bash
# Installs the Debian packages that the build and the tests need and that are missing.  Asks nothing.
#   tools/setup.sh [--checks] [--bench] [--arm]
set -euo pipefail

packages=(cmake ninja-build g++ python3 pkg-config libexpat1-dev libgtest-dev node-llhttp curl
  libcli11-dev nlohmann-json3-dev)
for option in "$@"; do
  case "$option" in
    --checks) packages+=(clang clang-format clang-tidy libclang-rt-dev binutils) ;;
    --arm) packages+=(g++-arm-linux-gnueabihf libc6-dev-armhf-cross qemu-user) ;;
    --bench) packages+=(libbenchmark-dev libpugixml-dev librapidxml-dev libtinyxml2-dev) ;;
    *) echo "tools/setup.sh: unknown option '$option', use --checks, --bench or --arm" >&2; exit 2 ;;
  esac
done

missing=()
for package in "${packages[@]}"; do
  dpkg-query --show --showformat='${Status}' "$package" 2>/dev/null | grep --quiet 'install ok installed' ||
    missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

as_root=()
if [ "$(id --user)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "tools/setup.sh: needs root to install: ${missing[*]}" >&2; exit 1; }
  as_root=(sudo)
fi
echo "Installing: ${missing[*]}"
log=$(mktemp)
trap 'rm --force "$log"' EXIT
if ! { "${as_root[@]}" apt-get update &&
       "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install --yes --no-install-recommends "${missing[@]}"
     } >"$log" 2>&1; then
  tail --lines=20 "$log" >&2
  exit 1
fi
