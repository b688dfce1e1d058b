# Devices that are attached when a client starts are reported once each, hubs before the devices behind them.
# Also with udevd.
. /library.sh

plug 05ac:1393 --manufacturer "Apple Inc." --product AirPods --serial START1
pods=$path
plug 18d1:4ee7 --manufacturer Google --product "Pixel 7" --serial START2 --speed super
phone=$path
make_gadget 0 1d6b 0104 START3
connect_gadget 0
add 1 usb-hub
add 1.3 usb-kbd
watch_bus
compare_streams
yusb list --json >listed
for serial in START1 START2 START3; do
  [ "$(grep -c "\"serial_number\":\"$serial\"" listed)" = 1 ] || fail "yusb list does not show $serial once: $(cat listed)"
done
unplug "$pods"
unplug "$phone"
disconnect_gadget 0
remove 1
compare_streams
end_clients
