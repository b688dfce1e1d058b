#!/bin/bash
# compare.sh FOLDER: fails unless the libraries in FOLDER, built by gcc with debug information, have the binary
# interface that is described here. After a planned addition, "compare.sh --update FOLDER" updates the descriptions.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
update=
if [ "$1" = --update ]; then
  update=yes
  shift
fi
folder=$1
machine=$(uname -m)

describe() {
  local name=${1##*/} options=()
  local left_out=$here/${name%%.so*}.suppr
  if [ -e "$left_out" ]; then options=(--suppressions "$left_out"); fi
  abidw "${options[@]}" --exported-interfaces-only \
    --headers-dir "$root/include" --headers-dir "$root/port/core/include" \
    --headers-dir "$root/port/bus/include" --headers-dir "$root/bindings/c/include" \
    --drop-private-types --drop-undefined-syms \
    --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed "$1" | sed -E "s# path='[^']*/(src|port|bindings)/# path='\\1/#"
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
status=0
for library in libYorvanCore.so.2 libYorvanUsb.so.5 libYorvanUsbBus.so.5 bindings/c/libYorvanUsbC.so.1; do
  kept=$here/${library##*/}.$machine.abi
  if [ -n "$update" ]; then
    describe "$folder/$library" >"$kept"
  elif [ ! -e "$kept" ]; then
    echo "$library: SKIPPED, nothing was compared: tests/abi has no description for $machine" >&2
  else
    describe "$folder/$library" >"$work/now"
    if abidiff "$kept" "$work/now" >"$work/difference"; then
      echo "$library: unchanged"
    else
      echo "$library: the binary interface has changed:"
      head -n 60 "$work/difference"
      status=1
    fi
  fi
done
exit $status
