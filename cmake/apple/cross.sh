#!/bin/bash
# cross.sh FOLDER: builds the libraries and yusb for macOS, for both processors, in FOLDER, and checks the results. It
# needs clang, lld, llvm, and the headers of libc++ and musl; Apple's declarations are in headers/. The results are
# linked against stubs and cannot be run.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
mkdir -p "$1"
work=$(cd "$1" && pwd)
export TMPDIR=$work/tmp # where the compiler leaves empty folders
rm -rf "$TMPDIR"
mkdir "$TMPDIR"
sdk=$work/MacOSX.sdk
build=$work/build
llvm=$(dirname "$(readlink -f "$(command -v clang++)")")

# ---- An SDK ----

stub() { # stub FILE INSTALL-NAME SYMBOL...: writes the stub of a library for the linker
  mkdir -p "$(dirname "$sdk/$1")"
  cat >"$sdk/$1" <<TBD
--- !tapi-tbd
tbd-version: 4
targets: [ x86_64-macos, arm64-macos ]
install-name: $2
exports:
  - targets: [ x86_64-macos, arm64-macos ]
    symbols: [ $(printf '_%s, ' "${@:3}") ]
...
TBD
}
framework() { # framework NAME SYMBOL...: writes a stub with the names that its headers declare, and SYMBOLs
  folder=System/Library/Frameworks/$1.framework
  names=$(find "$here/headers/$1" -name '*.h' -exec cat {} + | tr '\n' ' ' |
    grep -oE 'APPLE_EXPORT [^;(]*[ *][A-Za-z]+ *(\(|;|__attr)' | sed -E 's/ *(\(|;|__attr)$//; s/.*[ *]//')
  # shellcheck disable=SC2086 # a list of names
  stub "$folder/$1.tbd" "/$folder/Versions/A/$1" $names "${@:2}"
  ln -sfn "$here/headers/$1" "$sdk/$folder/Headers"
}
framework CoreFoundation __CFConstantStringClassReference
framework IOKit
mkdir -p "$sdk/usr/include"
ln -sfn "$here/headers/mach" "$sdk/usr/include/mach"
stub usr/lib/libSystem.tbd /usr/lib/libSystem.B.dylib dyld_stub_binder
stub usr/lib/libc++.tbd /usr/lib/libc++.1.dylib __gxx_personality_v0

stub usr/lib/libutf8proc.tbd /usr/local/lib/libutf8proc.dylib utf8proc_iterate

# The headers of yusb's dependencies, without the host's other headers, and those that libc++ expects from macOS's C
# library.
rm -rf "$work/packages"
mkdir -p "$work/packages/include" "$work/packages/share"
cp -r /usr/include/CLI /usr/include/fmt /usr/include/nlohmann /usr/include/utf8proc.h "$work/packages/include"
cp -r /usr/share/cmake "$work/packages/share"
cat >"$work/packages/include/xlocale.h" <<'HEADER'
#pragma once
#include <stdio.h>
#include <__support/musl/xlocale.h>
typedef unsigned int __uint32_t;
enum { _CTYPE_A = 0x100, _CTYPE_C = 0x200, _CTYPE_D = 0x400, _CTYPE_L = 0x1000, _CTYPE_P = 0x2000, _CTYPE_S = 0x4000,
       _CTYPE_U = 0x8000, _CTYPE_X = 0x10000, _CTYPE_B = 0x20000, _CTYPE_R = 0x40000 };
extern "C" int snprintf_l(char*, size_t, locale_t, const char*, ...);
extern "C" int sscanf_l(const char*, locale_t, const char*, ...);
extern "C" int asprintf_l(char**, locale_t, const char*, ...);
HEADER

mkdir -p "$work/bin"
for tool in lipo install-name-tool ar ranlib; do
  ln -sf "$llvm/llvm-$tool" "$work/bin/$(echo $tool | tr - _)"
done
printf '#!/bin/sh\necho 11.0\n' >"$work/bin/sw_vers" # CMake queries the version of macOS
chmod +x "$work/bin/sw_vers"
PATH=$work/bin:$PATH

# ---- The build ----

headers="-D_GNU_SOURCE -nostdlibinc -isystem $llvm/../include/c++/v1 -isystem /usr/include/$(uname -m)-linux-musl"
headers="$headers -isystem $sdk/usr/include -iframework $sdk/System/Library/Frameworks"
rm -rf "$build" "$work/prefix"
build_it() {
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DYORVANUSB_TESTS=OFF \
    -DCMAKE_FIND_ROOT_PATH="$work/packages" -DCMAKE_FIND_ROOT_PATH_MODE_PACKAGE=ONLY \
    -DFMT_INCLUDE_DIR="$work/packages/include" -DUTF8PROC_INCLUDE_DIR="$work/packages/include" \
    -DUTF8PROC_LIBRARY="$sdk/usr/lib/libutf8proc.tbd" \
    -DCMAKE_SYSTEM_NAME=Darwin -DCMAKE_SYSTEM_VERSION=20.0 -DCMAKE_OSX_SYSROOT="$sdk" \
    -DCMAKE_CXX_COMPILER="$llvm/clang++" -DCMAKE_CXX_COMPILER_TARGET=arm64-apple-macos11.0 \
    -DCMAKE_CXX_FLAGS="--start-no-unused-arguments -stdlib=libc++ $headers --end-no-unused-arguments" \
    -DCMAKE_CXX_ARCHIVE_CREATE="$llvm/llvm-libtool-darwin -static -o <TARGET> <OBJECTS>" \
    -DCMAKE_CXX_ARCHIVE_FINISH= -DCMAKE_NM="$llvm/llvm-nm" \
    -DCMAKE_EXE_LINKER_FLAGS="-fuse-ld=lld -Wl,-undefined,dynamic_lookup" \
    -DCMAKE_SHARED_LINKER_FLAGS="-fuse-ld=lld -Wl,-undefined,dynamic_lookup" &&
    cmake --build "$build" && cmake --install "$build" --prefix "$work/prefix"
}
build_it >"$work/log" 2>&1 || {
  tail -n 40 "$work/log" >&2
  exit 1
}

# ---- Checks ----

status=0
prefix=$work/prefix
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
compatible=${version%%.*}.0.0
says() { # says WHAT RESULT
  if [ "$2" = 0 ]; then
    echo "macos: $arch: $1"
  else
    echo "macos: $arch: NOT SO: $1" >&2
    status=1
  fi
}
shows() { # shows FILE WHAT PATTERN OPTION...: checks that objdump prints a line that matches the pattern
  result=0
  "$llvm/llvm-objdump" --macho --arch="$arch" "${@:4}" "$1" | grep -E -- "$3" >/dev/null || result=1
  says "${1#"$prefix/"} $2" $result
}

# hands SOURCE NAME...: checks that SOURCE compiles without a warning for each deployment target, and that it passes
# exactly NAMEs to IOKit, whatever the macros of that SDK expand to.
hands() {
  result=0
  object=$work/${1##*/}.o
  for oldest in 11.0 12.0 13.0 14.0 15.0; do
    # shellcheck disable=SC2086 # flags are words
    "$llvm/clang++" -target "$arch-apple-macos$oldest" -std=c++17 -stdlib=libc++ -O2 -Wall -Wextra -Wpedantic -Werror \
      $headers -I "$root/include" -I "$root/src" -I "$root/port/core/include" -I "$root/port/bus/include" \
      -I "$root/port" \
      -c "$root/$1" -o "$object" || { result=1 && continue; }
    names=$("$llvm/llvm-objdump" --macho --section=__TEXT,__cstring "$object" |
      sed -nE 's/^[0-9a-f]+  ((IO|location).*)/\1/p' | LC_ALL=C sort | xargs)
    constants=$("$llvm/llvm-nm" --undefined-only --just-symbol-name "$object" | grep '^_kIO' | xargs) || true
    [ "$names $constants" = "${*:2} " ] || {
      echo "for macOS $oldest: $names $constants" >&2
      result=1
    }
  done
  says "$1 compiles for macOS 11 to 15 and passes IOKit the names ${*:2}" $result
}

for arch in arm64 x86_64; do
  for declarations in "$here/headers" "$root/port/apple/include"; do
    result=0
    "$llvm/clang++" -target "$arch-apple-macos11.0" -std=c++17 -Wall -Wextra -Werror -fsyntax-only \
      -nostdlibinc -I "$declarations" "$here/layout.cpp" || result=1
    says "${declarations#"$root/"} has the published types, layouts and values" $result
  done
  hands src/platform/darwin/hotplug.cpp IOServiceFirstMatch IOServiceTerminate IOUSBDevice locationID
  hands port/macos/bus.cpp IOUSBDevice locationID
  hands port/macos/details.cpp IOService IOUSBDevice locationID
  for name in YorvanUsb YorvanUsbBus; do
    library=$prefix/lib/lib$name.5.dylib
    shows "$library" "is called @rpath/lib$name.5.dylib, version $version, compatible with $compatible" \
      "@rpath/lib$name.5.dylib \\(compatibility version $compatible, current version $version\\)" --dylibs-used
    shows "$library" "needs the core library, version 2" '@rpath/libYorvanCore.2.dylib' --dylibs-used
    shows "$library" "searches for it in its own folder" '^@loader_path$' --rpaths
    shows "$library" "runs on macOS 11.0" 'minos 11.0' --private-headers
    result=0
    "$llvm/llvm-nm" --arch="$arch" --undefined-only --format=darwin "$library" >"$work/needed"
    grep -E ' _+k?(CF|IO)[A-Z].*\(from (CoreFoundation|IOKit)\)' "$work/needed" >/dev/null || result=1
    if grep -E ' _+(k?(CF|IO)[A-Z]|ZN?K?[0-9]+[Yy]).*\(dynamically' "$work/needed" >&2; then result=1; fi
    says "lib/lib$name.5.dylib finds Apple's symbols in the frameworks, and the project's in its libraries" $result
    result=0
    list=$root/cmake/exports/$name
    [ ! -f "$list.macos.txt" ] || list=$list.macos
    cmake "-DLIBRARY=$library" "-DLIST=$list.txt" "-DNM=$llvm/llvm-nm;--arch=$arch" -P "$root/cmake/exports.cmake" >&2 ||
      result=1
    says "lib/lib$name.5.dylib exports exactly the listed symbols" $result
  done
  shows "$prefix/lib/libYorvanUsb.5.dylib" "has two functions that the loader calls" '__mod_init_func +0*10 ' --section-headers
  shows "$prefix/bin/yusb" "searches for the libraries in its prefix" '^@loader_path/../lib$' --rpaths
done
exit $status
