# Uevents that are neither additions nor removals wake no thread of a client.
. /library.sh

watch_bus
compare_streams
switches() { cat /proc/$(pidof usb-watch | cut -d' ' -f1)/task/*/status | awk '/ctxt_switches/ { n += $2 } END { print n }'; }
before=$(switches)
usb-uevents --ask 1000 change
after=$(switches)
[ "$after" = "$before" ] || fail "$((after - before)) context switches"
plug 05ac:1393 --serial WAKES
compare_streams
[ "$(switches)" != "$before" ] || fail "a device causes no context switch either"
unplug "$path"
compare_streams
end_clients
