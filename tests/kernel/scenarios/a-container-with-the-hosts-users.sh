# In a network namespace of the initial user namespace, clients receive uevents as on the host.
. /library.sh

enter="unshare -n"
watch_bus
plug 05ac:1393 --serial FIRST
compare_streams
unplug "$path"
compare_streams
! grep -q 'network namespace' */*.log || fail "the bus is polled: $(grep 'network namespace' */*.log)"
end_clients
