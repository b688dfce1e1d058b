# Devices behind ports above 15 have unique locations, which do not change until they are detached.
. /library.sh

watch_bus
modprobe gadgetfs
mkdir -p /dev/gadget
mount -t gadgetfs gadgetfs /dev/gadget
usb-wide-hub &
hub=$(gadget_path 0)
for each in "$hub" "$hub.16" "$hub.18"; do wait_until "$each" is_there "$each"; done
compare_pictures
kill $!
for each in "$hub.18" "$hub.16" "$hub"; do wait_until "$each to leave" is_gone "$each"; done
compare_pictures
umount /dev/gadget
rmmod gadgetfs

# The hub has a location made of ports; those of the devices are hashes, which differ from every such location.
bus=$(printf %X "${hub%-1}")
for user in $users; do
  for stream in watcher queue yusb; do
    grep '"product":"Wide"' $user/$stream.stream >seen
    for serial in 0 16 18; do
      for event in arrival removal; do
        sed -n "/\"event\":\"$event\"/s/.*\"location\":\"\([^\"]*\)\".*\"serial_number\":\"$serial\".*/\1/p" seen >"$event.$serial"
        [ "$(wc -l <"$event.$serial")" = 1 ] || fail "$user/$stream: not one $event of $serial: $(cat seen)"
      done
      cmp -s arrival.$serial removal.$serial || fail "$user/$stream: $serial was removed from another location: $(cat seen)"
    done
    [ "$(cat arrival.0)" = "0x${bus}100000" ] || fail "$user/$stream: the hub is at $(cat arrival.0)"
    grep -qE "^0x${bus}0[0-9A-F]{5}$" arrival.16 || fail "$user/$stream: port 16 is $(cat arrival.16)"
    ! cmp -s arrival.16 arrival.18 || fail "$user/$stream: ports 16 and 18 are both $(cat arrival.16)"
  done
done
end_clients
