#!/bin/bash
# build.sh DOCUMENT...: builds each program of the documents with the command that its document shows, and runs those
# that end. The libraries must be installed or found through PKG_CONFIG_PATH and LD_LIBRARY_PATH.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

for document in "$@"; do
  name=$(basename "$document" | tr . _)
  awk -v prefix="$work/$name" -f "$here/samples.awk" "$root/$document"
  # The commands are of the form: c++ ... program.cpp -o program $(pkg-config ... MODULE), or cc ... program.c
  sed -E 's/\\-/-/g' "$root/$document" | grep -oE '(c\+\+|cc) [^`]*\$\(pkg-config [^)]*\)' >"$work/commands"
  for sample in "$work/$name"_*.c*; do
    if grep -qE 'yusb_c(_simulator)?\.h' "$sample"; then module=YorvanUsbC
    elif grep -qE 'yusb_(bus|details|openable[a-z_]*|simulator)\.h' "$sample"; then module='YorvanUsb[A-Z][A-Za-z]*'
    else module=YorvanUsb; fi
    command=$(grep -m 1 -E " $module\)\$" "$work/commands") || {
      echo "$document has no command with the pkg-config module $module"
      exit 1
    }
    source=$(echo "$command" | grep -oE '[a-z]+\.c(pp)?')
    mkdir "$work/built"
    cp "$sample" "$work/built/$source"
    (cd "$work/built" && sh -c "$command")
    if ! grep -qE 'minutes\(1\)|60000' "$sample"; then
      (cd "$work/built" && timeout 60 "./${source%.c*}" </dev/null >output 2>&1) || {
        cat "$work/built/output"
        echo "a program of $document fails; build command: $command"
        exit 1
      }
    fi
    rm -rf "$work/built"
    echo "$document: $command"
  done
done
