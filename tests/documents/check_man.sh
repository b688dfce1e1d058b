#!/bin/sh
# check_man.sh PAGE...: fails if the formatter prints a warning about a manual page.
set -eu
said=$(LC_ALL=C.UTF-8 MANROFFSEQ='' MANWIDTH=80 man --warnings -E UTF-8 -l -Tutf8 -Z "$@" 2>&1 >/dev/null)
if [ -n "$said" ]; then
  echo "$said"
  exit 1
fi
