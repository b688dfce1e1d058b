# Completion of yusb for bash. Installed as share/bash-completion/completions/yusb.
_yusb() {
  local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command='' each
  for each in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    case $each in
      list | watch | wait) command=$each && break ;;
    esac
  done
  COMPREPLY=()
  case $previous in
    --simulate)
      compopt -o filenames
      mapfile -t COMPREPLY < <(compgen -f -- "$word")
      return
      ;;
    --filter)
      # A comma-separated list: complete its last item.
      local before=''
      [[ $word == *,* ]] && before=${word%,*},
      compopt -o nospace
      mapfile -t COMPREPLY < <(compgen -P "$before" -W 'apple airpods android id= vendor= location=0x serial=' -- "${word##*,}")
      return
      ;;
    --for | --timeout)
      mapfile -t COMPREPLY < <(compgen -W '250ms 10s 5m' -- "$word")
      return
      ;;
    --count)
      return
      ;;
  esac
  local options='--help --simulate --log'
  case $command in
    '') options="list watch wait --version $options" ;;
    list) options="--filter --json --tree $options" ;;
    watch) options="--filter --json --for --count $options" ;;
    wait) options="--filter --json --gone --timeout $options" ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
}
complete -F _yusb yusb
