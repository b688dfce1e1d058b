# In a storm of devices of every kind, each client's list is equal to sysfs after every tenth step.
# Also with udevd.
. /library.sh

: "${seed:=1}" "${steps:=40}"
state=$((seed * 7919 + 1))
draw() { # LIMIT: sets $drawn to a number below it
  state=$(((state * 1103515245 + 12345) & 0x7fffffff))
  drawn=$(((state >> 8) % $1))
}

plugged=
made=0
plug_any() { # OPTION...
  made=$((made + 1))
  draw 4
  case $drawn in
    0) set -- 05ac:1393 --manufacturer "Apple Inc." --product AirPods "$@" ;;
    1) set -- 18d1:4ee7 --manufacturer Google --product "Pixel 7" --speed super "$@" ;;
    2) set -- 1209:0001 --manufacturer "café 中文" --language 0407 "$@" ;;
    3) set -- 0403:6001 --speed full "$@" ;;
  esac
  usb-device "$@" --serial "STORM$made" 2>/dev/null
}

unplug_any() { # fails if nothing is plugged
  set -- $plugged
  [ $# != 0 ] || return 1
  draw $#
  eval "unplugged=\${$((drawn + 1))}"
  detach "$unplugged" 2>/dev/null
  plugged=$(echo " $* " | sed "s/ $unplugged / /")
}

toggle_gadget() {
  if [ -n "$(cat "$gadgets/g$1/UDC")" ]; then echo >"$gadgets/g$1/UDC"; else echo "dummy_udc.$1" >"$gadgets/g$1/UDC"; fi
}

hub=
toggle_hub() {
  if [ -n "$hub" ]; then
    host device_del id=hub
    hub=
  else
    host device_add driver=usb-hub bus=xhci.0 port=4 id=hub
    for port in 1 2 5; do host device_add driver=usb-tablet bus=xhci.0 port=4.$port id=behind$port; done
    hub=yes
  fi
}

step() {
  draw 16
  case $drawn in
    0 | 1 | 2 | 3 | 4) path=$(plug_any) && plugged="$plugged $path" ;;
    5 | 6 | 7) unplug_any ;;
    8 | 9) # replace it by another device immediately
      unplug_any
      path=$(plug_any) && plugged="$plugged $path"
      ;;
    10 | 11) draw 2 && toggle_gadget "$drawn" ;;
    12) for each in 1 2; do toggle_gadget 1; done ;;
    13) toggle_hub ;;
    14) draw 300 && plug_any --times 3 --for "$drawn" >/dev/null ;;
    15) draw 400 && usleep $((drawn * 1000)) ;;
  esac
}

make_gadget 0 1d6b 0104 GADGET0
make_gadget 1 1d6b 0105 GADGET1
watch_bus
count=0
while [ $count -lt "$steps" ]; do
  count=$((count + 1))
  step
  if [ $((count % 10)) = 0 ]; then compare_unless_lost; fi
done
while unplug_any; do :; done
[ -z "$hub" ] || toggle_hub
for gadget in 0 1; do [ -z "$(cat $gadgets/g$gadget/UDC)" ] || toggle_gadget $gadget; done
wait_until "the end of the devices" eval '! pidof usb-device >/dev/null && nothing_is_attached'
compare_unless_lost
[ "$(grep -c arrival kernel.events)" -gt $((steps / 3)) ] || fail "seed $seed: few devices appeared"
end_clients
