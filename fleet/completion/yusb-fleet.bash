# Completion of yusb-fleet for bash. Installed as share/bash-completion/completions/yusb-fleet.
_yusb_fleet() {
  local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command='' each
  for each in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    case $each in
      agent | list | watch | wait | forget | metrics) command=$each && break ;;
    esac
  done
  COMPREPLY=()
  case $previous in
    --password-file | --ca | --cert | --key)
      compopt -o filenames
      mapfile -t COMPREPLY < <(compgen -f -- "$word")
      return
      ;;
    --filter)
      compopt -o nospace
      mapfile -t COMPREPLY < <(compgen -W 'apple airpods android id= vendor= location=0x port= class= interface=
        mode= name= serial= not:' -- "$word")
      return
      ;;
    --for | --timeout | --heartbeat)
      mapfile -t COMPREPLY < <(compgen -W '250ms 10s 5m' -- "$word")
      return
      ;;
    --broker)
      compopt -o nospace
      mapfile -t COMPREPLY < <(compgen -W 'mqtt:// mqtts://' -- "$word")
      return
      ;;
    --host | --prefix | --user)
      return
      ;;
  esac
  local options='--help --broker --prefix --user --password-file --ca --cert --key'
  case $command in
    '') options='agent list watch wait forget metrics --help --version' ;;
    agent) options="--filter --host --heartbeat $options" ;;
    list) options="--filter --json $options" ;;
    watch) options="--filter --json --for $options" ;;
    wait) options="--filter --json --gone --timeout $options" ;;
    metrics) options="--once $options" ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
  if [[ $command == metrics && $word != -* ]]; then
    mapfile -t -O ${#COMPREPLY[@]} COMPREPLY < <(compgen -f -- "$word")
  fi
}
complete -F _yusb_fleet yusb-fleet
