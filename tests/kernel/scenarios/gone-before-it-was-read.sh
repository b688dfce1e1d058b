# A device that is gone before it was read has no other device's strings, and leaves as it came.
. /library.sh

milliseconds() { cut -d' ' -f1 /proc/uptime | tr -d . | sed 's/$/0/'; }
watch_bus
started=$(milliseconds)
plug 1209:0003
took=$(($(milliseconds) - started)) # what the kernel needs for a device before it announces it
unplug "$path"
for percentage in 60 70 80 90 100 110 130; do
  for letter in A B; do
    usb-device 1209:000$letter --manufacturer $letter --product $letter --serial $letter \
      --times 2 --for $((took * percentage / 100)) >/dev/null
    wait_until "the unplugging of $letter" eval '! pidof usb-device >/dev/null'
  done
done
wait_until "the last to leave" nothing_is_attached
compare_streams
grep -q '"product_id":"000[ab]"' root/watcher.stream || fail "no device appeared"
for letter in A B; do
  other=$(echo $letter | tr AB BA)
  id=$(echo $letter | tr AB ab)
  ! grep "\"product_id\":\"000$id\"" */*.stream | grep -E "\"(manufacturer|product|serial_number)\":\"$other\"" ||
    fail "$letter has strings of $other"
done
end_clients
