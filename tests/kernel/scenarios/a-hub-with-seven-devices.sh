# When a hub is detached, it and the seven devices behind it are removed: eight removals, the hub's last.
. /library.sh

watch_bus
add 3 usb-hub
for port in 1 2 3 4 5 6 7; do add 3.$port usb-mouse; done
compare_streams
for user in $users; do cp $user/watcher.stream $user/before; done
remove 3
compare_streams
for user in $users; do
  tail -n +$(($(wc -l <$user/before) + 1)) $user/watcher.stream >removals
  [ "$(grep -c '"event":"removal"' removals)" = 8 ] || fail "not eight removals: $(cat removals)"
  tail -n 1 removals | grep -q '"product":"QEMU USB Hub"' || fail "the hub is not the last: $(cat removals)"
done
end_clients
