#!/bin/sh
# run.sh FOLDER: installs the Debian packages in FOLDER in a fresh Debian 12, builds and runs a client and its test
# with them, runs the program, and removes them. Needs root, mmdebstrap and a Debian mirror.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
folder=$(cd "$1" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

mkdir "$work/try"
cp "$folder"/*.deb "$here"/inside.sh "$here"/../../examples/*.cpp "$here"/../../examples/*.h "$work/try/"
# The root is made, used and thrown away by this one command.
# shellcheck disable=SC2016 # $1 is the hook's
mmdebstrap --quiet --variant=apt --include=g++,pkg-config \
  --customize-hook="copy-in '$work/try' /" --customize-hook='chroot "$1" sh /try/inside.sh' \
  bookworm /dev/null 2>"$work/log" >&2 || {
  tail -n 40 "$work/log" >&2
  echo "packages: failed" >&2
  exit 1
}
grep '^packages: ' "$work/log"
