# After the kernel had to drop events the picture is what sysfs shows again, and one line of the log says so.
. /library.sh

watch_bus
plug 05ac:1393 --serial BEFORE
before=$path
compare_streams
watchers=$(pidof usb-watch yusb)
kill -STOP $watchers
# Every uevent that is asked for in sysfs is one of the kernel's. Root's queues take tens of thousands.
flood() {
  usb-uevents --ask 10000 add
  awk '$2 == 15 && $9 > 0 { dropping++ } END { exit dropping < 4 }' /proc/net/netlink # all four clients' queues
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
    [ "$(grep -c 'events were lost' $user/$log.log)" = 1 ] || fail "$user/$log.log does not tell of one loss: $(grep lost $user/$log.log)"
  done
done
unplug "$after"
compare_pictures
end_clients
