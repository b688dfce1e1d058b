# A host may exit without releasing the library while devices are attached and detached.
. /library.sh

usb-device 05ac:1393 --serial BUSY --times 1000 --for 400 >/dev/null
mkdir out
count=0
while [ $count -lt "${hosts:=8}" ]; do
  count=$((count + 1))
  usb-watch out 2>/dev/null &
  host=$!
  wait_until "its start" [ -s out/queue.stream ]
  rm -f out/*
  kill -USR1 $host
  wait $host
  status=$?
  [ $status = 0 ] || fail "host $count ended with status $status"
done
kill "$(pidof usb-device)"
wait_until "the device to leave" nothing_is_attached
