#!/bin/bash
# check_unit.sh UNIT PROGRAM: fails if systemd reports an error in the unit, with PROGRAM in place of /usr/bin/yusb,
# or if PROGRAM does not accept the arguments in the unit.
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$(dirname "$0")/check_unit_alone.sh" "$1" "$2"

# shellcheck disable=SC2046 # arguments are words
"$2" $(sed -n 's#^ExecStart=/usr/bin/yusb ##p' "$1") --simulate /dev/stdin >"$work/journal" <<'TEXT'
attach 1-1 18d1:4ee7 serial="0A1B2C"
wait   10ms
detach 1-1
wait   10ms
TEXT
cat "$work/journal"
[ "$(grep -c '^{.*"serial_number":"0A1B2C".*}$' "$work/journal")" = 2 ]
