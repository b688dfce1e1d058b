#!/bin/sh
# Runs as root in a fresh Debian 12 with the packages in /try.
set -eu
cd /try
# The build of a user must not depend on the environment in which the packages were built.
unset CXX CXXFLAGS LDFLAGS CMAKE_CXX_COMPILER_LAUNCHER
export DEBIAN_FRONTEND=noninteractive
apt_get() { apt-get -qq -y --no-install-recommends "$@"; }
files() { find / -xdev \( -iname '*yorvan*' -o -iname '*yusb*' \) ! -path '/try/*' ! -path '/proc/*' ! -path '/sys/*'; }

files >before
apt_get install ./yusb_*.deb ./libyorvanusb5_*.deb ./libyorvancore2_*.deb
yusb --version
yusb list --simulate /usr/share/doc/yusb/examples/lab.scenario >listed
test -s listed
echo "packages: the program runs, with $(dpkg-query -W -f '${Package} ' 'libyorvan*')"

apt_get install ./libyorvanusbc1_*.deb ./libyorvanusb-dev_*.deb
cmake -S /usr/share/doc/libyorvanusb-dev/examples -B examples
cmake --build examples
ctest --test-dir examples --no-tests=error --output-on-failure
echo "packages: the packaged examples build, and their tests pass"

apt_get install ./python3-yorvanusb_*.deb python3-pytest
cat >test_installed.py <<'TEXT'
import yorvanusb


def test_fixture(usb_bus):
    usb_bus.plug('1-2', vendor=0x18D1, product=1)
    assert yorvanusb.devices()[0].details().port_path == '1-2'
TEXT
python3 -m pytest -q -p no:cacheprovider test_installed.py
echo "packages: Python finds its package, and pytest the fixture"

if ls yusb-fleet_*.deb >/dev/null 2>&1; then
  ./lab.sh ./fleet.md
  echo "packages: the set-up of docs/fleet.md shows a phone"
  apt-get -qq -y purge mosquitto
fi

apt_get install ./*-dbgsym_*.deb
library=$(ls /usr/lib/*/libYorvanUsb.so.5)
address=$(nm -DC "$library" | sed -n 's/ T yusb::global_initialize()$//p')
addr2line -e "$library" "0x$address" | grep 'lifecycle\.cpp:[0-9]'
echo "packages: the debug symbols match the libraries"

apt_get purge 'libyorvan*' 'yusb*' python3-yorvanusb
rm -rf /etc/default/yusb-fleet /etc/yusb-fleet /etc/mosquitto
files >after
diff before after
echo "packages: removed without leftovers"
