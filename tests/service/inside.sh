#!/bin/sh
# Runs as root under systemd in a fresh Debian 12 with the packages in /try: follows the section "Set up" of
# docs/fleet.md, and verifies what the service manager does with the agent.
modprobe -a dummy_hcd libcomposite usb_f_ss_lb
. /try/library.sh
set -e
usleep() { sleep 0.05; }
trap '[ $? = 0 ] || { systemctl status --no-pager yusb-fleet mosquitto; journalctl --no-pager -n 60; }' EXIT
export HOME=/root

mountpoint -q /sys/kernel/config || mount -t configfs configfs /sys/kernel/config
echo '127.0.0.1 localhost broker.example' >/etc/hosts
mkdir -p shims
# It asks for the password on the terminal.
cat >shims/mosquitto_passwd <<'TEXT'
#!/bin/sh
printf 'secret\nsecret\n' | /usr/bin/mosquitto_passwd "$@"
TEXT
chmod +x shims/mosquitto_passwd

reader() {
  command=$1
  shift
  yusb-fleet "$command" --broker mqtt://broker.example --user reader --password-file password "$@"
}
shows() { reader list | grep -qE "$1"; }
property() { systemctl show --value -p "$1" yusb-fleet; }
has_started() { [ "$(property ActiveState)" = active ] && [ "$(property NRestarts)" = "$1" ]; }
has_state() { [ "$(property ActiveState)" = "$1" ]; }

sed -n '/^## Set up/,/^## /s/^    //p' fleet.md | grep -v '^apt' >commands
printf 'secret\n' | PATH=$PWD/shims:$PATH sh -exc "$(cat commands)"
echo secret >password
has_started 0 || fail "the service is not active"
[ "$(property Type)" = notify ] || fail "the service does not notify"
[ "$(stat -c %u "/proc/$(property MainPID)")" != 0 ] || fail "the agent runs as root"
echo "service: runs without privilege, and said when it was ready"

make_gadget 0 18d1 4ee7 PHONE
connect_gadget 0
reader wait --filter serial=PHONE --timeout 3m
disconnect_gadget 0
reader wait --gone --filter serial=PHONE --timeout 3m
connect_gadget 0
reader wait --filter serial=PHONE --timeout 3m
echo "service: reports a device that is attached, detached and attached again"

kill -KILL "$(property MainPID)"
wait_until "the host to be offline" shows '^lab1 +offline'
wait_until "the first restart" has_started 1
wait_until "the host to be online" shows '^lab1 +online .*PHONE'
echo "service: killed, it is started again"

kill -STOP "$(property MainPID)"
wait_until "the watchdog" has_started 2
journalctl -u yusb-fleet | grep -q 'Watchdog timeout' || fail "not restarted by the watchdog"
wait_until "the host to be online" shows '^lab1 +online .*PHONE'
echo "service: stopped, the watchdog starts it again"

systemctl restart mosquitto
wait_until "the agent to lose the broker" eval 'journalctl -u yusb-fleet | grep -q "not connected"'
wait_until "the host to be online" shows '^lab1 +online .*PHONE'
has_started 2 || fail "the agent was restarted with the broker"
echo "service: the broker restarted, the agent connects again"

systemctl stop yusb-fleet
shows '^lab1 +offline' || fail "stopped, the host is not offline"
[ "$(property Result)" = success ] || fail "stopped, its result is $(property Result)"
mv /etc/yusb-fleet/mqtt-password kept
systemctl start yusb-fleet # without a password
wait_until "the refusal" eval 'journalctl -u yusb-fleet | grep -qi "not authori"'
has_started 0 || fail "without a password, the service is not active"
mv kept /etc/yusb-fleet/mqtt-password
systemctl restart yusb-fleet
wait_until "the host to be online" shows '^lab1 +online'
echo "service: stops and starts, also without a password file"

systemctl stop yusb-fleet
echo 'YUSB_FLEET_OPTIONS="--no-such-option"' >/etc/default/yusb-fleet
systemctl start yusb-fleet || true
wait_until "the failure" has_state failed
[ "$(property ExecMainStatus)" = 2 ] || fail "exit status $(property ExecMainStatus)"
! journalctl | grep -q secret || fail "the journal has the password"
echo "service: not started again with a wrong command line"
echo "service: passed"
