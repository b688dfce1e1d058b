#!/bin/sh
# check_format.sh FILE SOURCE...: FILE, such as a manual page, names each word of a format: of the JSON lines, the
# filters or the scenarios. The words are the quoted lower-case words of the sources.
set -eu
file=$1
shift
status=0
for word in $(grep -ohE '"[a-z_]+"' "$@" | tr -d '"' | sort -u); do
  sed 's/\\//g' "$file" | grep -qw -- "$word" && continue
  echo "$file does not name \"$word\""
  status=1
done
exit $status
