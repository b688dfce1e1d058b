# When a host controller is unbound, all its devices and root hubs are removed; when it is bound, all are reported.
. /library.sh

watch_bus
add 1 usb-hub
add 1.2 usb-kbd
add 2 usb-mouse
driver=/sys/bus/pci/drivers/xhci_hcd
slot=$(basename $driver/0*)
for round in 1 2; do
  echo "$slot" >$driver/unbind
  compare_streams
  echo "$slot" >$driver/bind
  bus=$(xhci_bus)
  for port in 1 1.2 2; do wait_until "$bus-$port" is_there "$bus-$port"; done
  compare_streams
done
remove 2
remove 1
compare_streams
removed=$(grep removal nobody/watcher.stream | grep -c "xHCI Host Controller")
[ "$removed" = 4 ] || fail "$removed removals of root hubs, not 4"
end_clients
