#!/bin/sh
# check_unit_alone.sh UNIT PROGRAM: fails if systemd finds fault with the unit, PROGRAM being its /usr/bin/ program, or
# rates its exposure above 2.0.
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
systemd-analyze security --no-pager --offline=true --threshold=20 "$unit" >"$work/security" || {
  cat "$work/security"
  exit 1
}
