#!/bin/bash
# platforms.sh NAME FOLDER: builds the project and runs its tests on another platform, in a root file system that it
# creates and keeps in FOLDER/NAME (remove that to create it again).
#   i386     Debian 12 for i386, which runs on an x86-64 kernel
#   trixie   Debian 13, with gcc 14 and then clang 19
#   arm64    Debian 12, built by a cross compiler; the tests run in an emulator, a few times slower
#   s390x    the same for a big-endian processor
# It needs root, mmdebstrap and a Debian mirror; arm64 and s390x also need qemu-user-static and binfmt-support.
set -euo pipefail
source_tree=$(cd "$(dirname "$0")/.." && pwd)
name=$1
work=$2/$name
root=$work/root
jobs=$(getconf _NPROCESSORS_ONLN)

say() { echo "platforms: $name: $*" >&2; }
fail() {
  say "$*"
  exit 1
}

# ---- The platforms ----

suite=bookworm
architectures=$(dpkg --print-architecture)
cpu=
compilers=c++
packages="cmake ninja-build libcli11-dev nlohmann-json3-dev libfmt-dev pkg-config man-db systemd"
libraries="libutf8proc-dev libgtest-dev libumockdev-dev umockdev"
fleet="libmosquitto-dev mosquitto mosquitto-clients openssl python3-pytest" # yusb-fleet and its tests
case $name in
  i386)
    architectures=i386
    packages="$packages g++ $fleet $libraries"
    ;;
  trixie)
    suite=trixie
    compilers="c++ clang++"
    packages="$packages g++ clang $fleet $libraries"
    ;;
  arm64 | s390x)
    case $name in
      arm64) cpu=aarch64 ;;
      *) cpu=$name ;;
    esac
    architectures=$architectures,$name
    compilers=$cpu-linux-gnu-g++
    packages="$packages g++-$cpu-linux-gnu"
    for library in $libraries libc6 libstdc++6; do packages="$packages $library:$name"; done
    ;;
  *) fail "unknown platform; platforms: i386 trixie arm64 s390x" ;;
esac

[ "$(id -u)" = 0 ] || fail "only root can create a root file system"
if [ -n "$cpu" ] && [ "$name" != "$(dpkg --print-architecture)" ] && [ ! -e "/proc/sys/fs/binfmt_misc/qemu-$cpu" ]; then
  [ -e /proc/sys/fs/binfmt_misc/register ] || mount -t binfmt_misc binfmt_misc /proc/sys/fs/binfmt_misc
  update-binfmts --enable "qemu-$cpu" || fail "cannot register the emulator for $cpu with the kernel (binfmt_misc)"
fi

# ---- The root file system ----

mkdir -p "$work/build"
if [ "$(cat "$work/complete" 2>/dev/null)" != "$packages" ]; then
  say "creating a root file system (Debian $suite, $architectures); this takes some minutes"
  rm -rf "$root" "$work/complete"
  # It is used only for tests: security updates are not needed.
  # shellcheck disable=SC2016 # $1 is the hook's
  mmdebstrap --variant=apt "--architectures=$architectures" "--include=${packages// /,}" \
    --setup-hook='sed -i /security/d "$1"/etc/apt/sources.list' "$suite" "$root" >"$work/root.log" 2>&1 || {
    grep -E '^(E|W):' "$work/root.log" >&2 || tail -n 20 "$work/root.log" >&2
    fail "cannot create it; see $work/root.log"
  }
  printf '::1 localhost\n127.0.0.1 localhost\n' >"$root/etc/hosts"
  echo "$packages" >"$work/complete"
fi

# ---- Build and test ----

# inside COMMAND...: runs a command in the root, with the sources, read-only, as /src and $work/build as /build. Mounts
# and processes end with the command.
inside() {
  mkdir -p "$root/src" "$root/build"
  # shellcheck disable=SC2016 # for the inner shell
  unshare --mount --pid --fork --kill-child sh -euc '
    mount -t proc proc "$1/proc"
    mount --rbind /sys "$1/sys"
    mount --rbind /dev "$1/dev"
    mount --bind "$2" "$1/src"
    mount -o remount,bind,ro "$1/src"
    mount --bind "$3" "$1/build"
    root=$1
    shift 3
    exec chroot "$root" "$@"' sh "$root" "$source_tree" "$work/build" "$@"
}

for compiler in $compilers; do
  cross=
  [ -z "$cpu" ] || cross="-DCMAKE_SYSTEM_NAME=Linux -DCMAKE_SYSTEM_PROCESSOR=$cpu
    -DCMAKE_C_COMPILER=$cpu-linux-gnu-gcc
    -DPKG_CONFIG_EXECUTABLE=/usr/bin/$cpu-linux-gnu-pkg-config"
  say "building with $compiler"
  # shellcheck disable=SC2086 # words
  inside cmake -S /src -B "/build/$compiler" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DYORVANUSB_WARNINGS_AS_ERRORS=ON \
    -DCMAKE_CXX_COMPILER="$compiler" $cross >"$work/configure.log" 2>&1 || {
    tail -n 20 "$work/configure.log" >&2
    fail "cannot configure"
  }
  inside ninja -C "/build/$compiler" -j "$jobs" >&2
  say "testing, $(inside "$compiler" --version | head -n 1)"
  inside ctest --test-dir "/build/$compiler" --no-tests=error --output-on-failure -j "$jobs"
done
