#!/bin/bash
# run.sh FOLDER: installs the Debian packages in FOLDER in a fresh Debian 12, runs the program, builds and tests the
# examples in them, and removes them. Needs root, mmdebstrap and a Debian mirror.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
folder=$(cd "$1" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

mkdir "$work/try"
cp "$folder"/*.deb "$here"/inside.sh "$here"/lab.sh "$here"/../../docs/fleet.md "$work/try/"
echo "packages: creating a fresh Debian 12; this takes a minute or more"
# This command creates, uses and removes the root file system.
# shellcheck disable=SC2016 # $1 is the hook's
mmdebstrap --quiet --variant=apt --include=g++,cmake,make,pkg-config \
  --customize-hook="copy-in '$work/try' /" --customize-hook='chroot "$1" sh /try/inside.sh >&2 && touch "$1/try/passed"' \
  --customize-hook="copy-out /try/passed '$work'" bookworm /dev/null 2>&1 >/dev/null |
  tee "$work/log" | grep --line-buffered '^packages: ' || true
[ -e "$work/passed" ] || {
  tail -n 40 "$work/log" >&2
  echo "packages: failed" >&2
  exit 1
}
