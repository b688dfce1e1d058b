# Functions for scenarios. Each scenario runs as root in an empty folder, with the port to the host as descriptor 8.
set -u

bound=180 # the time limit of a condition, in seconds; the kernel sometimes needs half a minute
sysfs=/sys/bus/usb/devices

fail() {
  echo "failed: $*"
  exit 1
}

uptime() { # sets $now, in seconds
  read -r now rest </proc/uptime
  now=${now%.*}
}

# true_in SECONDS COMMAND...: succeeds if the command succeeds within that time.
true_in() {
  uptime
  end=$((now + $1))
  shift
  until "$@"; do
    uptime
    [ "$now" -lt $end ] || return 1
    usleep 20000
  done
}

# wait_until WHAT COMMAND...: fails the scenario if the command does not succeed in time.
wait_until() {
  awaited=$1
  shift
  true_in $bound "$@" || fail "waited $bound s for $awaited"
}

is_there() { [ -e "$sysfs/$1/idVendor" ]; }
is_gone() { [ ! -e "$sysfs/$1" ]; }
vendor_at() { cat "$sysfs/$1/idVendor" 2>/dev/null; }

# ---- Devices emulated in the machine, on vhci_hcd ----

vhci=/sys/devices/platform/vhci_hcd.0
vhci_port() { # vhci_port PATH: the second bus has the ports from 15
  case $(cat "$vhci/usb${1%-*}/speed") in
    480) echo $((${1#*-} - 1)) ;;
    *) echo $((${1#*-} + 14)) ;;
  esac
}

detach() { vhci_port "$1" >$vhci/detach; }

# plug VENDOR:PRODUCT OPTION...: attaches a device and sets $path. Tries again if the kernel was too busy and gave up.
plug() {
  for attempt in 1 2 3; do
    path=$(usb-device "$@") || fail "device $*"
    true_in 60 is_there "$path" && return 0
    echo "note: attempt $attempt to attach $1 failed"
    detach "$path"
  done
  fail "the kernel does not attach $1"
}

unplug() {
  detach "$1"
  wait_until "$1 to leave" is_gone "$1"
}

# ---- Gadgets on dummy_hcd ----

gadgets=/sys/kernel/config/usb_gadget

# make_gadget NUMBER VENDOR PRODUCT SERIAL
make_gadget() {
  mkdir -p "$gadgets/g$1/strings/0x409" "$gadgets/g$1/configs/c.1" "$gadgets/g$1/functions/Loopback.0"
  echo "0x$2" >"$gadgets/g$1/idVendor"
  echo "0x$3" >"$gadgets/g$1/idProduct"
  echo "$4" >"$gadgets/g$1/strings/0x409/serialnumber"
  echo Gadget >"$gadgets/g$1/strings/0x409/product"
  [ -e "$gadgets/g$1/configs/c.1/Loopback.0" ] || ln -s "$gadgets/g$1/functions/Loopback.0" "$gadgets/g$1/configs/c.1/"
}

gadget_path() {
  for bus in /sys/devices/platform/dummy_hcd."$1"/usb*; do
    [ "$(cat "$bus/speed")" = 480 ] && echo "${bus##*/usb}-1"
  done
}

connect_gadget() {
  echo "dummy_udc.$1" >"$gadgets/g$1/UDC" || fail "no dummy_udc.$1"
  path=$(gadget_path "$1")
  wait_until "gadget $1" is_there "$path"
}

disconnect_gadget() {
  echo >"$gadgets/g$1/UDC"
  wait_until "gadget $1 to leave" is_gone "$(gadget_path "$1")"
}

# ---- QEMU's devices, on its xHCI ----

# host COMMAND KEY=VALUE...: makes QEMU execute a command.
host() {
  echo "host $*" >&8
  read -r answer <&8
  [ "$answer" = ok ] || fail "QEMU: $*: $answer"
}

xhci_bus() {
  for bus in /sys/bus/pci/drivers/xhci_hcd/*/usb*; do
    [ "$(cat "$bus/speed")" = 480 ] && echo "${bus##*/usb}"
  done
}

# add PORT DRIVER [ID]: attaches a QEMU device at PORT, "2" or "2.3" behind a hub, and sets $path.
add() {
  path=$(xhci_bus)-$1
  host device_add driver="$2" bus=xhci.0 port="$1" id="${3:-p$1}"
  wait_until "$2 at $path" is_there "$path"
}

# remove PORT [ID]
remove() {
  host device_del id="${2:-p$1}"
  wait_until "$1 to leave" is_gone "$(xhci_bus)-$1"
}

# ---- Clients ----

users="root nobody"

# as_user USER COMMAND...: runs a command as a user; call it in a subshell. $enter may be a command that runs it
# elsewhere.
as_user() {
  user=$1
  shift
  [ "$user" = root ] || set -- su -s /bin/sh nobody -c 'exec "$@"' -- sh "$@"
  exec ${enter:-} "$@"
}

# watch_bus: starts a client and "yusb watch" as each user, with the streams *.stream, and records the kernel's events.
watch_bus() {
  clients=
  usb-uevents >kernel.events &
  clients="$clients $!"
  wait_until "the kernel's events" [ -s kernel.events ]
  for user in $users; do
    mkdir -m 777 $user
    : >$user/yusb.stream
    (as_user $user yusb watch --json --log >$user/yusb.stream 2>$user/yusb.log) &
    clients="$clients $!"
    (as_user $user usb-watch $user 2>$user/watch.log) &
    clients="$clients $!"
    wait_until "the streams of $user" [ -s $user/watcher.stream -a -s $user/queue.stream -a -s $user/yusb.stream ]
  done
}

# compare_streams: checks that all streams match sysfs and have as many events as the kernel's.
compare_streams() { usb-compare --exact kernel.events */*.stream || exit 1; }

# compare_pictures: the same without the numbers, for when events may have been lost.
compare_pictures() { usb-compare */*.stream || exit 1; }

# end_clients: ends the clients and checks that each exits with status 0.
end_clients() {
  kill $clients
  for client in $clients; do
    wait "$client" 2>/dev/null
    case $? in
      0 | 143) ;;
      *) fail "a client ended with status $?" ;;
    esac
  done
}

# compare_unless_lost: compares the numbers too, unless a client's receive buffer has overflowed.
compare_unless_lost() {
  if grep -q 'events were lost' */*.log; then compare_pictures; else compare_streams; fi
}

nothing_is_attached() { ! ls $sysfs | grep -qvE '^usb|-0:'; }

nothing_is_attached || fail "attached already: $(ls $sysfs)"
