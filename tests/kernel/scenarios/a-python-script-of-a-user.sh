# An unprivileged user's Python script follows random plugs, 200 with --long.
. /library.sh

: "${seed:=1}" "${plugs:=40}"
state=$((seed * 7919 + 1))
draw() { # LIMIT: sets $drawn to a number below it
  state=$(((state * 1103515245 + 12345) & 0x7fffffff))
  drawn=$(((state >> 8) % $1))
}

cat >follow.py <<'TEXT'
import asyncio
import sys
import yorvanusb


async def follow():
    async with yorvanusb.watch(yorvanusb.Filter(vendor=0x18D1)) as events:
        print('ready', file=sys.stderr, flush=True)
        async for event in events:
            print('+-'[isinstance(event, yorvanusb.Removal)], event.device.serial_number, flush=True)


asyncio.run(follow())
TEXT
mkdir -m 777 nobody
(as_user nobody python3 follow.py >nobody/seen 2>nobody/errors) &
script=$!
wait_until "the script" grep -q ready nobody/errors

plugged= count=0
unplug_one() {
  set -- $plugged
  draw $#
  eval "one=\${$((drawn + 1))}"
  unplug "${one%=*}"
  echo "- ${one#*=}" >>expected
  plugged=$(echo " $* " | sed "s/ $one / /")
}
for number in $(seq "$plugs"); do
  [ $count -lt 6 ] && draw 2 || drawn=0
  if [ $count != 0 ] && [ $drawn = 0 ]; then
    unplug_one
    count=$((count - 1))
  fi
  plug 18d1:4ee7 --serial "PLUG$number"
  echo "+ PLUG$number" >>expected
  plugged="$plugged $path=PLUG$number"
  count=$((count + 1))
done
while [ $count != 0 ]; do
  unplug_one
  count=$((count - 1))
done
wait_until "the script's last event" eval '[ "$(wc -l <nobody/seen)" -ge "$(wc -l <expected)" ]'
cmp expected nobody/seen || fail "the script saw: $(diff expected nobody/seen | head -5)"
[ "$(cat nobody/errors)" = ready ] || fail "the script printed: $(cat nobody/errors)"
kill $script
