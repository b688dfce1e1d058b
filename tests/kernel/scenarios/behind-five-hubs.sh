# A device behind five hubs, as deep as USB goes, whose events are the kernel's longest, is reported like any other.
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
