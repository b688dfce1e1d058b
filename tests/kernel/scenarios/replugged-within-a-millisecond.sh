# A device that is replugged within a millisecond causes a removal, then an arrival, as often as the kernel saw it.
. /library.sh

watch_bus
add 1 usb-mouse
mouse=$path
is_another() { now=$(cat "$sysfs/$1/devnum" 2>/dev/null) && [ "${now:-$before}" != "$before" ]; }
for round in 1 2 3 4 5; do
  before=$(cat "$sysfs/$mouse/devnum")
  # Both commands at once, so that QEMU's answer does not delay the second.
  printf 'host %s\n' "device_del id=p1" "device_add driver=usb-mouse bus=xhci.0 port=1 id=p1" >&8
  for answers in 1 2; do
    read -r answer <&8
    [ "$answer" = ok ] || fail "QEMU: $answer"
  done
  wait_until "the mouse again" is_another "$mouse"
done
remove 1
compare_streams
seen=$(grep -c "\"path\":\"$mouse\"" kernel.events)
[ "$seen" = 12 ] || fail "the kernel saw $seen arrivals and removals, not 12"

# The same through vhci_hcd: its hub finds the port free, and in use again a moment later.
usb-device 05ac:1393 --serial AGAIN --times 5 --for 1500 >/dev/null
wait_until "the last unplugging" eval '! pidof usb-device >/dev/null'
wait_until "its end" nothing_is_attached
compare_streams
end_clients
