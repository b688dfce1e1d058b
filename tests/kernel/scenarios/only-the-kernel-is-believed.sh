# A process that sends what looks like an event of the kernel adds and removes nothing.
. /library.sh

watch_bus
plug 05ac:1393 --serial TRUE
compare_streams
(as_user nobody usb-uevents --forge add 9-9)
(as_user nobody usb-uevents --forge remove "$path")
usb-uevents --forge add 9-9
usb-uevents --forge remove "$path"
# What follows from the kernel comes after them.
unplug "$path"
compare_streams
! grep -q 0x9900000 */*.stream || fail "a forged device is reported"
[ "$(grep -c TRUE root/watcher.stream)" = 2 ] || fail "not two events: $(cat root/watcher.stream)"
end_clients
