# A device that never answers delays no device of another controller, and a string that it does not send stays empty.
. /library.sh

watch_bus
mute=$(usb-device 1209:0bad --hold a)
# Until the kernel gives up, the strings of the device's hub cannot be read. A client that starts now lists the devices
# before that hub.
hub=usb${mute%-*}
cannot_be_read() { cat $sysfs/$hub/product >product & sleep 1; kill $! 2>/dev/null && [ ! -s product ]; }
wait_until "the kernel to try the device" cannot_be_read
yusb watch --json --for 3s >early
grep -q '"port":"usb1"' early || fail "nothing is listed before $hub: $(cat early)"
make_gadget 0 1d6b 0104 GADGET
connect_gadget 0
# The streams are not compared with sysfs, where the hub still has no strings.
for user in $users; do
  wait_until "the gadget in the stream of $user" grep -q '"serial_number":"GADGET"' $user/watcher.stream
done
disconnect_gadget 0
detach "$mute"
compare_streams

# The kernel waits five seconds for a string, and then announces the device.
plug 1209:0001 --manufacturer M --product P --serial S --hold p
compare_streams
for user in $users; do
  grep -F '"serial_number":"S"' $user/watcher.stream | grep -qF '"product":""' || fail "$user: $(cat $user/watcher.stream)"
done

# The library gives up after half a second, so a client that starts now is not delayed for longer.
uptime
started=$now
yusb list --json >listed
uptime
took=$((now - started))
grep -qF '"serial_number":"S"' listed || fail "not listed: $(cat listed)"
[ $took -lt 4 ] || fail "yusb list took $took s"
unplug "$path"
compare_streams
end_clients
