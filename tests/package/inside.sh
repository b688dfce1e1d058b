#!/bin/sh
# Runs as root in a fresh Debian 12 that has the packages, two clients and a scenario in /try.
set -eu
cd /try
export DEBIAN_FRONTEND=noninteractive
apt_get() { apt-get -qq -y --no-install-recommends "$@"; }
files() { find / -xdev \( -iname '*yorvan*' -o -iname '*yusb*' \) ! -path '/try/*' ! -path '/proc/*' ! -path '/sys/*'; }

files >before
apt_get install ./yusb_*.deb ./libyorvanusb5_*.deb ./libyorvancore2_*.deb
yusb --version
yusb list --simulate /usr/share/doc/yusb/examples/lab.scenario >listed
test -s listed
echo "packages: the program runs, with $(dpkg-query -W -f '${Package} ' 'libyorvan*')"

apt_get install ./libyorvanusb-dev_*.deb
for program in client client_test; do
  # shellcheck disable=SC2046 # flags are words
  g++ -pthread $program.cpp -o $program $(pkg-config --cflags --libs YorvanUsbSimulator)
  ./$program 0
done
echo "packages: a client and its test are built and run"

apt_get purge 'libyorvan*' yusb
files >after
diff before after
echo "packages: removed, and nothing is left of them"
