#!/bin/sh
# lab.sh PAGE: follows the section "Set up" of docs/fleet.md in a fresh Debian 12, as root. There is no service manager,
# so programs in place of systemctl and mosquitto_passwd do what the page's commands need of them; the agent runs
# unprivileged on a mocked bus. Broker and agent have network and process IDs of their own.
set -eu
page=$1
commands() { sed -n '/^## Set up/,/^## /s/^    //p' "$page"; }

if [ "${2:-}" != alone ]; then
  printf '#!/bin/sh\nexit 101\n' >/usr/sbin/policy-rc.d # packages start no services
  chmod +x /usr/sbin/policy-rc.d
  apt-get -qq -y --no-install-recommends install umockdev iproute2 util-linux
  commands | sed -n 's/^apt install/apt-get -qq -y --no-install-recommends install/p' | sort -u >packages
  sh -ec "$(cat packages)"
  echo '127.0.0.1 localhost broker.example' >/etc/hosts
  # Its programs end with it.
  exec unshare --net --pid --fork --kill-child "$0" "$page" alone
fi

ip link set lo up
mkdir shims
cat >shims/mosquitto_passwd <<'TEXT'
#!/bin/sh
printf 'secret\nsecret\n' | /usr/bin/mosquitto_passwd "$@"
TEXT
cat >phone <<'TEXT'
P: /devices/1-1
E: SUBSYSTEM=usb
E: DEVTYPE=usb_device
E: DEVNUM=002
E: PRODUCT=18d1/4ee7/100
H: descriptors=1201000200000040D118E74E000101020301
A: devnum=2\n
A: busnum=1\n
A: serial=PHONE\n

TEXT
cat >shims/systemctl <<'TEXT'
#!/bin/sh
set -eu
case $* in
  'restart mosquitto')
    mkdir -p /run/mosquitto /var/log/mosquitto
    chown mosquitto /run/mosquitto /var/log/mosquitto
    mosquitto -d -c /etc/mosquitto/mosquitto.conf
    ;;
  'enable --now yusb-fleet')
    unit=/usr/lib/systemd/system/yusb-fleet.service
    . /etc/default/yusb-fleet
    mkdir credentials
    cp "$(sed -n 's/^LoadCredential=mqtt-password://p' $unit)" credentials/mqtt-password
    chown -R nobody credentials
    export CREDENTIALS_DIRECTORY="$PWD/credentials" YUSB_FLEET_OPTIONS
    setpriv --reuid nobody --regid nogroup --clear-groups umockdev-run -d phone -- \
      sh -c "exec $(sed -n 's/^ExecStart=//p' $unit)" >agent.log 2>&1 &
    ;;
  *) exit 1 ;;
esac
TEXT
chmod +x shims/*
chmod 755 .
commands | grep -v '^apt' >rest
printf 'secret\n' | PATH=$PWD/shims:$PATH sh -exc "$(cat rest)"
echo secret >password
yusb-fleet wait --filter serial=PHONE --timeout 60s --broker mqtt://broker.example --user reader --password-file password ||
  { cat agent.log /var/log/mosquitto/mosquitto.log && exit 1; }
yusb-fleet list --broker mqtt://broker.example --user reader --password-file password | grep -E '^lab1 +online +1-1 '
