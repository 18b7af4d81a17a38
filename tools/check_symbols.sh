#!/usr/bin/env bash
# Complains where object files or programs call a C library function that the simulation's clock would not see.
#   tools/check_symbols.sh FILE...
# A name must be hooked (simcamera/hooks/selftest.cpp lists those) or known to be harmless (allowed_symbols.txt beside this
# script).  Names that the C library does not define are not looked at.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
[ $# -gt 0 ] || { echo "usage: $0 FILE..." >&2; exit 2; }

names=$(mktemp -d)
trap 'rm -rf "$names"' EXIT

{
  sed -n '/g_aszHooked/,/};/p' "$here/../simcamera/hooks/selftest.cpp" | grep -o '"[^"]*"' | tr -d '"'
  sed -e 's/#.*//' -e 's/[[:space:]]//g' -e '/^$/d' "$here/allowed_symbols.txt"
} | sort -u >"$names/allowed"
[ "$(wc -l <"$names/allowed")" -gt 50 ] || { echo "$0: the list of hooked names cannot be read" >&2; exit 2; }

for library in libc.so.6 libm.so.6; do
  nm --dynamic --defined-only "$(${CC:-cc} -print-file-name=$library)"
done | awk '{ print $3 }' | sed 's/@.*//' | sort -u >"$names/library"

failed=0
for file in "$@"; do
  nm --undefined-only "$file" >"$names/all" || { echo "$file: nm cannot read it" >&2; exit 2; }
  awk '{ print $2 }' "$names/all" | sed 's/@.*//' | sort -u | comm -12 - "$names/library" >"$names/called"
  while read -r name; do
    echo "$file: $name is neither hooked nor known to be harmless; hook it in simcamera/hooks or allow it in tools/allowed_symbols.txt"
    failed=1
  done < <(comm -23 "$names/called" "$names/allowed")
done
exit $failed
