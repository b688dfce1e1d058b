# A suspended device is not reported as removed, and a client that starts does not resume it.
. /library.sh

plug 1209:0001 --manufacturer M --product P --serial SLEEPER
sleeper=$path
watch_bus
power=$sysfs/$sleeper/power
echo 0 >$power/autosuspend_delay_ms
echo auto >$power/control
is_suspended() { [ "$(cat $power/runtime_status)" = suspended ]; }
wait_until "the suspend" is_suspended
compare_streams
active=$(cat $power/active_duration)
for user in $users; do (as_user $user yusb list --json) | grep -qF SLEEPER || fail "$user does not see it"; done
compare_streams
mkdir -m 777 opening
(as_user nobody usb-open 100 >opening/events) &
opening=$!
wait_until "an answer" grep -qs '^timed-out SLEEPER' opening/events
kill $opening
is_suspended || fail "the device is $(cat $power/runtime_status)"
[ "$(cat $power/active_duration)" = "$active" ] || fail "it was active for $(cat $power/active_duration) ms, not $active"
echo on >$power/control
wait_until "the end of the suspend" eval '! is_suspended'
[ "$(grep -c SLEEPER root/watcher.stream)" = 1 ] || fail "more than one event: $(cat root/watcher.stream)"
unplug "$sleeper"
compare_streams
end_clients
