#!/bin/bash
# check_options.sh PROGRAM COMMANDS BASH-COMPLETION ZSH-COMPLETION MANUAL: checks that the completions and the manual page
# have exactly the options that the help of PROGRAM lists, for each of its commands.
set -eu
program=$1 commands=$2 bash_completion=$3 zsh_completion=$4 manual=$5
name=$(basename "$program")
status=0

names() { grep -oE -- '--[a-z][a-z-]*' | sort -u; }

help_of() { "$program" ${1:+"$1"} --help | grep -oE '^ +(-[a-z],)?--[a-z-]+' | names; }

completed_by_bash() (
  . "$bash_completion"
  COMP_WORDS=("$name" ${1:+"$1"} '')
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  "_${name//-/_}"
  printf '%s\n' "${COMPREPLY[@]}" | names
)

# The call of _arguments for the command, with the arrays that it uses.
completed_by_zsh() {
  if [ -n "$1" ]; then
    called=$(sed -n "/ $1) _arguments/,/;;/p" "$zsh_completion")
    case $called in *'$filtered'*) called+=$(sed -n '/^  filtered=/p' "$zsh_completion") ;; esac
    { echo "$called"; sed -n '/^  help=/p' "$zsh_completion"; sed -n '/^  common=(/,/^  )/p' "$zsh_completion"; } | names
  else
    called=$(sed -n '/_arguments -C/p' "$zsh_completion")
    case $called in *'$common'*) called+=$(sed -n '/^  common=(/,/^  )/p' "$zsh_completion") ;; esac
    { echo "$called"; sed -n '/^  help=/p' "$zsh_completion"; } | names
  fi
}

# The synopsis of the command, and that of the common options.
in_synopsis() {
  page=$(sed 's/\\-/-/g' "$manual")
  call=$(sed -n "/^\.SY \"\{0,1\}$name${1:+[\\\\ ]*$1}\"\{0,1\}\$/,/^\.YS/p" <<<"$page")
  case $call in *COMMON* | *CONNECTION*) call+=$(sed -n '/^\.I CO[MN][A-Z]*$/,/^\.SH/p' <<<"$page") ;; esac
  names <<<"$call"
}

# The headings of the section OPTIONS.
described() { sed 's/\\-/-/g' "$manual" | sed -n '/^\.SH OPTIONS/,/^\.SH [^O]\|^\.SH OU/{/^\.TP/{n;p}}' | names; }

compare() { # compare WHERE EXPECTED FOUND
  [ "$2" = "$3" ] && return
  echo "$1 differs from the options that $name --help lists:"
  diff <(echo "$2") <(echo "$3") | grep '^[<>]' || true
  status=1
}

all=
for command in '' $commands; do
  expected=$(help_of "$command")
  all+="$expected"$'\n'
  compare "$bash_completion: ${command:-$name}" "$expected" "$(completed_by_bash "$command")"
  compare "$zsh_completion: ${command:-$name}" "$expected" "$(completed_by_zsh "$command")"
  compare "$manual: synopsis: ${command:-$name}" "$expected" "$( (in_synopsis "$command"; echo --help) | names)"
done
compare "$manual: OPTIONS" "$(echo "$all" | names)" "$(described)"
exit $status
