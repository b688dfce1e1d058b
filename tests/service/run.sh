#!/bin/bash
# run.sh FOLDER: boots a fresh Debian 12 with the Debian packages in FOLDER in a virtual machine, with systemd and
# Mosquitto, and runs inside.sh there. Needs root, mmdebstrap, a Debian mirror and qemu-system-x86_64.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
folder=$(cd "$1" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

mkdir "$work/try"
cp "$folder"/*.deb "$here"/inside.sh "$here"/../kernel/guest/library.sh "$here"/../../docs/fleet.md "$work/try/"
rm -f "$work"/try/*-dbgsym_*.deb
cat >"$work/try.service" <<'TEXT'
[Unit]
Wants=network-online.target systemd-udevd.service
After=network-online.target systemd-udevd.service

[Service]
Type=oneshot
WorkingDirectory=/try
ExecStart=/bin/sh /try/inside.sh
ExecStopPost=/bin/systemctl --force poweroff
StandardOutput=tty
StandardError=tty
TTYPath=/dev/ttyS1

[Install]
WantedBy=multi-user.target
TEXT
echo "service: creating a fresh Debian 12; this takes two minutes or more"
# The first $1 is the hook's.
# shellcheck disable=SC2016
mmdebstrap --quiet --variant=apt --format=directory \
  --include=systemd-sysv,dbus,udev,kmod,linux-image-amd64,mosquitto,zstd \
  --customize-hook="copy-in '$work/try' /" \
  --customize-hook="copy-in '$work/try.service' /etc/systemd/system" \
  --customize-hook='chroot "$1" sh -ec "cd /try && apt-get -qq -y --no-install-recommends install ./libyorvancore2_*.deb \
    ./libyorvanusb5_*.deb ./yusb-fleet_*.deb && systemctl -q enable try && systemctl -q disable mosquitto"' \
  bookworm "$work/root" >"$work/log" 2>&1 || {
  tail -n 40 "$work/log" >&2
  echo "service: cannot create Debian" >&2
  exit 1
}
mke2fs -q -t ext4 -d "$work/root" "$work/disk" 2G
timeout 1800 qemu-system-x86_64 -machine pc -cpu qemu64 -accel tcg,thread=multi -nodefaults -no-user-config \
  -display none -no-reboot -m 1024 -smp 2 -kernel "$work"/root/boot/vmlinuz-* -initrd "$work"/root/boot/initrd.img-* \
  -append "root=/dev/vda rw console=ttyS0 loglevel=4 panic=-1 mitigations=off no_timer_check systemd.show_status=false" \
  -drive "file=$work/disk,format=raw,if=virtio" -device virtio-rng-pci -serial "file:$work/console" -serial stdio </dev/null |
  tr -d '\r' | tee "$work/said" | grep --line-buffered '^service: ' || true
grep -q '^service: passed' "$work/said" || {
  tail -n 60 "$work/said" >&2
  echo "service: failed" >&2
  exit 1
}
