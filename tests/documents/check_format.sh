#!/bin/sh
# check_format.sh MANUAL SOURCE...: the manual page names each field of the JSON lines and each kind of filter, which are the
# quoted lower-case words of the sources.
set -eu
manual=$1
shift
status=0
for word in $(grep -ohE '"[a-z_]+"' "$@" | tr -d '"' | sort -u); do
  sed 's/\\//g' "$manual" | grep -qw -- "$word" && continue
  echo "$manual does not name \"$word\""
  status=1
done
exit $status
