# After the kernel has dropped uevents, each client's list is equal to sysfs again, and one log line reports the loss.
. /library.sh

watch_bus
plug 05ac:1393 --serial BEFORE
before=$path
compare_streams
watchers=$(pidof usb-watch yusb)
kill -STOP $watchers
# A uevent that is requested through sysfs is sent by the kernel. Root's receive buffers hold tens of thousands.
flood() {
  usb-uevents --ask 10000 add
  awk '$2 == 15 && $9 > 0 { dropping++ } END { exit dropping < 4 }' /proc/net/netlink # the buffers of all four clients
}
wait_until "the loss of events" flood
unplug "$before"
plug 1209:0001 --serial BETWEEN
between=$path
plug 18d1:4ee7 --serial AFTER --speed super
after=$path
unplug "$between"
kill -CONT $watchers
compare_pictures
for user in $users; do
  for log in watch yusb; do
    [ "$(grep -c 'events were lost' $user/$log.log)" = 1 ] || fail "$user/$log.log does not report exactly one loss: $(grep lost $user/$log.log)"
  done
done
unplug "$after"
compare_pictures
end_clients
