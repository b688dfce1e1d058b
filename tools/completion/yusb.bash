# Completion of yusb for bash. Installed as share/bash-completion/completions/yusb.
_yusb() {
  local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command='' each
  for each in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    case $each in
      list | show | watch | wait) command=$each && break ;;
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
      local before='' item=$word modes
      modes='adb fastboot mtp ptp mass-storage tethering accessory usbmux recovery dfu edl preloader download audio midi
        serial hid printer hub smart-card video bluetooth'
      [[ $item == *,* ]] && before=${item%,*}, item=${item##*,}
      [[ $item == not:* ]] && before+=not: item=${item#not:}
      compopt -o nospace
      if [[ $item == mode=* ]]; then
        mapfile -t COMPREPLY < <(compgen -P "${before}mode=" -W "$modes" -- "${item#mode=}")
      else
        mapfile -t COMPREPLY < <(compgen -P "$before" -W 'apple airpods android id= vendor= location=0x port= class=
          interface= mode= name= serial= not:' -- "$item")
      fi
      return
      ;;
    --for | --timeout | --heartbeat)
      mapfile -t COMPREPLY < <(compgen -W '250ms 10s 5m' -- "$word")
      return
      ;;
    --count)
      return
      ;;
  esac
  local options='--help --simulate --log'
  case $command in
    '') options="list show watch wait --version $options" ;;
    list) options="--filter --json --tree $options" ;;
    show) options="--json $options" ;;
    watch) options="--filter --json --new --openable --mark-listed --heartbeat --for --count $options" ;;
    wait) options="--filter --json --new --openable --gone --timeout $options" ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
}
complete -F _yusb yusb
