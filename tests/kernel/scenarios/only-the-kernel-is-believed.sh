# A process that sends forged uevents adds and removes no device.
. /library.sh

watch_bus
plug 05ac:1393 --serial TRUE
compare_streams
(as_user nobody usb-uevents --forge add 9-9)
(as_user nobody usb-uevents --forge remove "$path")
usb-uevents --forge add 9-9
usb-uevents --forge remove "$path"
# The kernel's own uevents follow the forged ones.
unplug "$path"
compare_streams
! grep -q 0x9900000 */*.stream || fail "a forged device is reported"
[ "$(grep -c TRUE root/watcher.stream)" = 2 ] || fail "not two events: $(cat root/watcher.stream)"
end_clients
