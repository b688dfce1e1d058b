#!/bin/sh
# check_recipes.sh YUSB MANUAL: runs each example of the manual page as it stands there, on a simulated bus, and checks
# what it prints. An example that is not known here fails: describe below what it must print.
set -eu
program=$1 manual=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The examples, as files 1, 2, ... with the characters that the page escapes.
awk -v folder="$work" '/^\.SH /{ examples = /EXAMPLES/ } /^\.EE/{ file = "" } file{ print > file }
  examples && /^\.EX/{ file = folder "/" ++count }' "$manual"
sed -i "s/\\\\-/-/g; s/\\\\(aq/'/g; s/\\\\(dq/\"/g; s/\\\\e/\\\\/g" "$work"/[0-9]*

# The n-th call of an example plays scenario n, or the last one.
mkdir "$work/bin"
cat >"$work/bin/yusb" <<TEXT
#!/bin/sh
number=\$((\$(cat calls) + 1))
echo \$number >calls
while [ ! -e scenario.\$number ]; do number=\$((number - 1)); done
exec '$program' "\$@" --simulate scenario.\$number
TEXT
chmod +x "$work/bin/yusb"

adb='18d1:4ee7 serial="R58M12ABCDE" interface=ff/42/01'
fastboot='18d1:4ee0 serial="R58M12ABCDE" interface=ff/42/03'

day() {
  cat <<TEXT
hub usb1 1d6b:0002
attach 1-1 046d:c31c product="Keyboard" interface=03/01/01
attach 1-2 $adb
wait 20ms
attach 1-3 05ac:12a8 serial="APPLE" interface=06/01/01:"PTP"
wait 20ms
attach 1-4 18d1:4ee7 serial="SECOND" interface=ff/42/01 openable=50ms
wait 200ms
detach 1-2
TEXT
}

boot_loader_and_back() {
  printf 'attach 1-2 %s\nwait 20ms\ndetach 1-2\nattach 1-2 %s\nwait 20ms\n' "$adb" "$fastboot" >scenario.1
  printf 'attach 1-2 %s\nwait 20ms\ndetach 1-2\nwait 20ms\n' "$fastboot" >scenario.2
  printf 'wait 20ms\nattach 1-2 %s openable=20ms\nwait 10m\n' "$adb" >scenario.3
}

# shows COUNT TEXT: the output has TEXT in that many lines.
shows() {
  found=$(grep -c -- "$2" output || true)
  [ "$found" = "$1" ] && return
  echo "the example should print '$2' in $1 lines, not $found:"
  cat example output
  exit 1
}

count=0
for example in "$work"/[0-9]*; do
  count=$((count + 1))
  mkdir "$work/run$count"
  cd "$work/run$count"
  cp "$example" example
  echo 0 >calls
  day >scenario.1
  if grep -q 'mode=fastboot' example; then boot_loader_and_back; fi
  if ! PATH=$work/bin:$PATH timeout 60 sh -e example >output 2>&1; then
    echo "an example fails:"
    cat example output
    exit 1
  fi
  case $(cat example) in
    *'watch --filter apple,android'*)
      shows 3 '  +  '
      shows 1 '  -  1-2  '
      shows 0 Keyboard
      ;;
    *'not:mode=hub'*)
      shows 1 R58M12ABCDE
      shows 0 1d6b
      ;;
    *'jq -r .serial_number'*)
      shows 1 .
      shows 1 '^R58M12ABCDE$'
      ;;
    *'while IFS='*)
      shows 2 .
      shows 1 '^phone R58M12ABCDE at port 1-2$'
      shows 1 '^phone SECOND at port 1-4$'
      ;;
    *'mode=fastboot'*)
      shows 2 .
      shows 1 'android,fastboot$'
      shows 1 '  \*  .*android,adb$'
      ;;
    *'>>usb.log'*)
      cp usb.log output
      shows 3 '^{"schema":1,.*}$'
      ;;
    *)
      echo "this example is not known here:"
      cat example
      exit 1
      ;;
  esac
done
echo "$count examples run"
[ "$count" -ge 6 ]
