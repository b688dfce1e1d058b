#!/bin/sh
# check_unit_alone.sh UNIT PROGRAM [EXPOSURE]: fails if systemd reports an error in the unit, with PROGRAM in place of
# its own, or rates its exposure above EXPOSURE, in tenths.
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
unit=$work/$(basename "$1")
sed -e "s#^ExecStart=[^ ]*#ExecStart=$2#" -e '/^Documentation=/d' "$1" >"$unit"
grep -q "^ExecStart=$2 " "$unit"
said=$(systemd-analyze verify "$unit" 2>&1)
if [ -n "$said" ]; then
  echo "$said"
  exit 1
fi
[ $# = 3 ] || exit 0
systemd-analyze security --no-pager --offline=true --threshold="$3" "$unit" >"$work/security" || {
  cat "$work/security"
  exit 1
}
