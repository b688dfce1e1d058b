# A device that is detached before it was read has its IDs, never another device's strings, and an equal removal.
. /library.sh

milliseconds() { cut -d' ' -f1 /proc/uptime | tr -d . | sed 's/$/0/'; }
stays() { plug 1209:000$1 --manufacturer $1 --product $1 --serial $1; }

# When the clients continue, the second B is at the port where each of the others was.
watch_bus
watchers=$(pidof usb-watch yusb)
kill -STOP $watchers
for letter in A B A; do
  stays $letter
  unplug "$path"
done
started=$(milliseconds)
stays B
took=$(($(milliseconds) - started)) # the time that the kernel takes before it announces a device
kill -CONT $watchers
compare_streams
printf '%s\n' "000a " "000b " "000a " "000b B" >expected
for stream in */*.stream; do
  sed -n '/"arrival".*"1209"/p' $stream | sed 's/.*"product_id":"\([^"]*\)".*"serial_number":"\([^"]*\)".*/\1 \2/' >seen
  cmp -s seen expected || fail "$stream: $(cat $stream)"
done
unplug "$path"

# Detached at about the moment at which the kernel announces it.
for percentage in 60 70 80 90 100 110 130; do
  usb-device 1209:0003 --manufacturer M --serial S --times 4 --for $((took * percentage / 100)) >/dev/null
  wait_until "the last unplugging" eval '! pidof usb-device >/dev/null'
done
wait_until "the last to leave" nothing_is_attached
compare_streams
grep -q '"product_id":"0003"' root/watcher.stream || fail "no device appeared"
end_clients
