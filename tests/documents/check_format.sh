#!/bin/sh
# check_format.sh MANUAL SOURCE...: the manual page names each word of a format, such as the fields of the JSON lines.
# They are the quoted lower-case words of the sources.
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
