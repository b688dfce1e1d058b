# A device behind five hubs, the maximum, is reported like any other, although its uevents are the kernel's longest.
. /library.sh

watch_bus
port=3
for _ in 1 2 3 4 5; do
  add $port usb-hub
  port=$port.1
done
add $port usb-mouse
compare_streams
remove 3
compare_streams
end_clients
