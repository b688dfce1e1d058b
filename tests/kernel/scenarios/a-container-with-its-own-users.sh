# If the kernel sends no uevents, in a user's own network namespace, the log says so and the bus is rescanned.
. /library.sh

in_namespace() { as_user "$1" unshare -U -n "$2" "$3"; }
plug 05ac:1393 --serial FIRST
first=$path
clients=
for user in $users; do
  mkdir -m 777 $user
  (in_namespace $user usb-watch $user 2>$user/watch.log) &
  clients="$clients $!"
  wait_until "the streams of $user" [ -s $user/watcher.stream -a -s $user/queue.stream ]
done
compare_pictures
plug 18d1:4ee7 --serial SECOND --speed super
compare_pictures
unplug "$first"
unplug "$path"
compare_pictures
for user in $users; do
  [ "$(grep -c 'No USB events reach this network namespace' $user/watch.log)" = 1 ] || fail "$user: $(cat $user/watch.log)"
  grep -qF '"serial_number":"SECOND"' $user/watcher.stream || fail "$user did not see the second device"
done
end_clients
