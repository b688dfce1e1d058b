# A string that is stalled, missing or in another language affects only that field.
# Also with udevd.
. /library.sh

# expect USER FIELD VALUE: checks the last arrival in each stream.
expect() {
  for stream in watcher yusb; do
    grep arrival "$1/$stream.stream" | tail -n 1 | grep -qF "\"$2\":\"$3\"" ||
      fail "$1/$stream: no $2 '$3' in $(tail -n 1 "$1/$stream.stream")"
  done
}

# try WHAT MANUFACTURER PRODUCT SERIAL OPTION...: attaches a device and checks the strings that every user receives.
try() {
  what=$1 manufacturer=$2 product=$3 serial=$4
  shift 4
  plug 1209:0001 --manufacturer M --product P --serial S "$@"
  compare_streams
  for user in $users; do
    expect $user manufacturer "$manufacturer"
    expect $user product "$product"
    expect $user serial_number "$serial"
  done
  unplug "$path"
}

watch_bus
try "all" M P S
try "a stalled manufacturer" "" P S --stall m
try "a stalled product" M "" S --stall p
try "a stalled serial number" M P "" --stall s
try "none" "" "" "" --manufacturer "" --product "" --serial ""
try "another language" M P S --language 0407
long=$(printf %0126d 7)
try "one as long as it may be" M "$long" S --product "$long"

# Beyond ASCII: the low bytes of the UTF-16 code units, compared with the kernel's UTF-8.
plug 1209:0001 --manufacturer "café" --product "中文" --serial "😁"
compare_streams
unplug "$path"

# Without a language table the kernel has no strings. Only a user who may open the device can read them.
plug 1209:0001 --manufacturer M --product P --serial S --stall l
compare_streams
expect root serial_number S
expect nobody serial_number ""
unplug "$path"
end_clients
