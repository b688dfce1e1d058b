#!/bin/bash
# check_options.sh YUSB BASH-COMPLETION ZSH-COMPLETION MANUAL: checks that the completions and the manual page have
# exactly the options that the help of the program YUSB lists, for each command.
set -eu
yusb=$1 bash_completion=$2 zsh_completion=$3 manual=$4
status=0

names() { grep -oE -- '--[a-z][a-z-]*' | sort -u; }

help_of() { "$yusb" ${1:+"$1"} --help | grep -oE '^ +(-[a-z],)?--[a-z-]+' | names; }

completed_by_bash() (
  . "$bash_completion"
  COMP_WORDS=(yusb ${1:+"$1"} '')
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  _yusb
  printf '%s\n' "${COMPREPLY[@]}" | names
)

# The call of _arguments for the command, with the arrays that it uses.
completed_by_zsh() {
  if [ -n "$1" ]; then
    called=$(sed -n "/ $1) _arguments/,/;;/p" "$zsh_completion")
    case $called in *'$filtered'*) called+=$(sed -n '/^  filtered=/p' "$zsh_completion") ;; esac
    { echo "$called"; sed -n '/^  common=(/,/^  )/p' "$zsh_completion"; } | names
  else
    sed -n '/_arguments -C/p; /^  common=(/,/^  )/p' "$zsh_completion" | names
  fi
}

# The synopsis of the command, and that of the common options.
in_synopsis() {
  sed 's/\\-/-/g' "$manual" | sed -n "/^\.SY \"\{0,1\}yusb${1:+[\\\\ ]*$1}\"\{0,1\}\$/,/^\.YS/p; /^\.I COMMON/,/^\.SH/p" | names
}

# The headings of the section OPTIONS.
described() { sed 's/\\-/-/g' "$manual" | sed -n '/^\.SH OPTIONS/,/^\.SH OUTPUT/{/^\.TP/{n;p}}' | names; }

compare() { # compare WHERE EXPECTED FOUND
  [ "$2" = "$3" ] && return
  echo "$1 differs from the options that yusb --help lists:"
  diff <(echo "$2") <(echo "$3") | grep '^[<>]' || true
  status=1
}

all=
for command in '' list show watch wait; do
  expected=$(help_of "$command")
  all+="$expected"$'\n'
  compare "$bash_completion: ${command:-yusb}" "$expected" "$(completed_by_bash "$command")"
  compare "$zsh_completion: ${command:-yusb}" "$expected" "$(completed_by_zsh "$command")"
  compare "$manual: synopsis: ${command:-yusb}" "$expected" "$( (in_synopsis "$command"; echo --help) | names)"
done
compare "$manual: OPTIONS" "$(echo "$all" | names)" "$(described)"
exit $status
