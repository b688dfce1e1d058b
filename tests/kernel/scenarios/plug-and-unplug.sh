# Each arrival and removal is reported exactly once, as often as the kernel announced it.
# Also with udevd.
. /library.sh

watch_bus
make_gadget 0 1d6b 0104 GADGET
for round in 1 2 3 4 5 6; do
  plug 05ac:1393 --manufacturer "Apple Inc." --product AirPods --serial "ROUND$round"
  plugged=$path
  connect_gadget 0
  add 2 usb-tablet
  unplug "$plugged"
  disconnect_gadget 0
  remove 2
done
compare_streams
for user in $users; do
  for stream in watcher queue yusb; do
    seen=$(grep -c '"serial_number":"ROUND' $user/$stream.stream)
    [ "$seen" = 12 ] || fail "$user/$stream.stream has $seen events of 12"
  done
done
end_clients
