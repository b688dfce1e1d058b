# Every device is reported as openable or timed out to an unprivileged user, who can open all that are openable.
# Also with udevd.
. /library.sh

: "${devices:=30}"
udevd= limit=500 # in milliseconds
if grep -q udevd=1 /proc/cmdline; then
  udevd=yes limit=60000
  mkdir -p /run/udev/rules.d
  echo 'SUBSYSTEM=="usb", ENV{DEVTYPE}=="usb_device", MODE="0666"' >/run/udev/rules.d/99-open.rules
  udevadm control --reload
elif [ "$devices" -gt 100 ]; then
  devices=100
fi
mkdir -m 777 nobody
(as_user nobody usb-open $limit >nobody/events) &
client=$!
wait_until "the client" grep -q ready nobody/events

answered() { grep -qE "^(openable|refused|timed-out) $1( |\$)" nobody/events; }
for number in $(seq "$devices"); do
  plug 18d1:4ee7 --manufacturer Google --serial "OPEN$number"
  wait_until "an answer for device $number" answered "OPEN$number"
  [ "$number" -le 8 ] || detach "$path"
done

# A phone that changes its mode is another device at the same port.
(as_user nobody yusb watch --json --new --mark-listed --filter serial=PHONE >nobody/phone.json) &
program=$!
wait_until "the list of yusb" grep -qs '"event":"listed"' nobody/phone.json
sees() { tail -n 1 nobody/phone.json | grep "\"event\":\"$1\"" | grep -q "\"modes\":\[\"$2\"\]"; }
plug 18d1:4ee7 --serial PHONE --interface ff4201
wait_until "ADB" grep -q '^arrival PHONE adb' nobody/events
wait_until "yusb to show ADB" sees arrival adb
unplug "$path"
wait_until "yusb to show the end of ADB" sees removal adb
plug 18d1:4ee0 --serial PHONE --interface ff4203
wait_until "fastboot" grep -q '^arrival PHONE fastboot' nobody/events
wait_until "yusb to show fastboot" sees arrival fastboot
unplug "$path"
wait_until "yusb to show the end of fastboot" sees removal fastboot
kill $program

for each in $sysfs/*/serial; do
  case $(cat "$each") in OPEN*) detach "$(basename "$(dirname "$each")")" ;; esac
done
wait_until "the end of the devices" nothing_is_attached
wait_until "the removals" eval '[ "$(grep -c "^removal OPEN" nobody/events)" = "$devices" ]'
if [ -n "$udevd" ]; then expected=openable; else expected=timed-out; fi
found=$(grep -cE "^$expected OPEN" nobody/events)
[ "$found" = "$devices" ] || fail "$found of $devices devices are $expected: $(grep -E '^(refused|timed-out)' nobody/events | head -3)"
kill $client
[ -z "$udevd" ] || { rm /run/udev/rules.d/99-open.rules && udevadm control --reload; }
