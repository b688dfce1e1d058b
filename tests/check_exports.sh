#!/bin/sh
# check_exports.sh LIBRARY LIST: fails unless LIBRARY exports exactly the symbols in LIST. NM names another nm.
set -eu
library=$1
list=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

grep -v '^#' "$list" | LC_ALL=C sort >"$work/listed"
case $library in
  *.dylib) ${NM:-nm} -gUj "$library" | sed -e 's/^_//' -e 's/NSt3__18function\(.*EE\)E/St8function\1/' ;;
  *) nm -D --defined-only "$library" | sed 's/.* //' ;;
esac | LC_ALL=C sort -u >"$work/exported"

if [ ! -s "$work/exported" ] || ! diff -u "$work/listed" "$work/exported" >"$work/diff"; then
  echo "$library does not export what $list says (- listed, + exported):"
  sed -n '/^[-+][^-+]/p' "$work/diff"
  exit 1
fi
