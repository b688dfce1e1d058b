# In a network namespace without users of its own the kernel's events arrive as outside.
. /library.sh

enter="unshare -n"
watch_bus
plug 05ac:1393 --serial FIRST
compare_streams
unplug "$path"
compare_streams
! grep -q 'network namespace' */*.log || fail "the bus is polled: $(grep 'network namespace' */*.log)"
end_clients
