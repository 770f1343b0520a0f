#!/usr/bin/env bash
# Compares the names that the shared library exports with the list kept in
# tvbase/exports.txt, so that a change to the library's interface is always
# a reviewed change to that file.
#
#   scripts/check-exports.sh [LIBRARY]            check (default build/default/libtvbase.so)
#   scripts/check-exports.sh --update [LIBRARY]   rewrite tvbase/exports.txt from LIBRARY
#
# tvbase/exports.txt holds one exported name a line: the mangled name, which
# is what the check compares, then a tab and its demangled form, for the
# reader of a diff. Lines are sorted by the mangled name in the C locale; a
# constructor or destructor shows up twice with one demangled form (the
# complete and the base object variants). Whatever the list says, a name of
# the standard library (std::, __gnu_cxx::) is an error: the linker version
# script, tvbase/exports.map, must keep those local.
set -euo pipefail
cd "$(dirname "$0")/.."
update=0
if [[ ${1:-} == --update ]]; then
  update=1
  shift
fi
library=${1:-build/default/libtvbase.so}
list=tvbase/exports.txt
[[ -f $library ]] || { echo "check-exports: no library at $library" >&2; exit 2; }

export LC_ALL=C
current=$(mktemp)
trap 'rm -f "$current"' EXIT
# Defined names of the dynamic symbol table; the version script gives them
# no version, so nm prints them bare.
nm -D --defined-only "$library" | awk '{ print $3 }' | sort -u |
  while IFS= read -r name; do
    printf '%s\t%s\n' "$name" "$(c++filt -- "$name")"
  done >"$current"

standard=$(cut -f2 "$current" |
  grep -E '^((typeinfo( name)?|vtable|VTT|guard variable) for )?(std|__gnu_cxx)::|^[^(]* (std|__gnu_cxx)::[^(]*\(' || true)
if [[ -n $standard ]]; then
  echo "check-exports: $library exports names of the standard library:" >&2
  echo "$standard" >&2
  exit 1
fi

if [[ $update -eq 1 ]]; then
  cp "$current" "$list"
  echo "check-exports: wrote $(wc -l <"$list") names to $list"
  exit 0
fi
if ! diff -u --label "$list" --label "$library" "$list" "$current"; then
  echo "check-exports: the exported names differ from $list (- listed, + exported);" >&2
  echo "  if the change is meant, run scripts/check-exports.sh --update and commit the list" >&2
  exit 1
fi
echo "check-exports: $library exports the $(wc -l <"$list") names of $list"
