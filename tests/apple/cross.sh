#!/bin/bash
# cross.sh FOLDER: builds the libraries for a Mac, for both of its processors, in FOLDER, and looks at what comes
# out. It needs clang, lld, llvm, and libc++'s and musl's headers; what it takes of Apple's is declared in headers/.
# What it builds is linked against names alone and cannot be run.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
mkdir -p "$1"
work=$(cd "$1" && pwd)
sdk=$work/MacOSX.sdk
build=$work/build
llvm=$(dirname "$(readlink -f "$(command -v clang++)")")

# ---- An SDK ----

stub() { # stub FILE INSTALL-NAME SYMBOL...: what a linker needs to know of a library
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
framework() { # framework NAME SYMBOL...: with the names that its headers declare, and these
  folder=System/Library/Frameworks/$1.framework
  names=$(find "$here/headers/$1" -name '*.h' -exec cat {} + | tr '\n' ' ' |
    grep -oE 'APPLE_EXPORT [^;(]*[ *][A-Za-z]+ *(\(|;|__attr)' | sed -E 's/ *(\(|;|__attr)$//; s/.*[ *]//')
  # shellcheck disable=SC2086 # a list of names
  stub "$folder/$1.tbd" "/$folder/Versions/A/$1" $names "${@:2}"
  ln -sfn "$here/headers/$1" "$sdk/$folder/Headers"
}
framework CoreFoundation __CFConstantStringClassReference
framework IOKit
stub usr/lib/libSystem.tbd /usr/lib/libSystem.B.dylib dyld_stub_binder
stub usr/lib/libc++.tbd /usr/lib/libc++.1.dylib __gxx_personality_v0

mkdir -p "$work/bin"
for tool in lipo install-name-tool ar ranlib; do
  ln -sf "$llvm/llvm-$tool" "$work/bin/$(echo $tool | tr - _)"
done
printf '#!/bin/sh\necho 11.0\n' >"$work/bin/sw_vers" # CMake asks which macOS it is
chmod +x "$work/bin/sw_vers"
PATH=$work/bin:$PATH

# ---- The build ----

headers="-D_GNU_SOURCE -nostdlibinc -isystem $llvm/../include/c++/v1 -isystem /usr/include/$(uname -m)-linux-musl"
headers="$headers -iframework $sdk/System/Library/Frameworks"
rm -rf "$build" "$work/prefix"
build_it() {
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DYORVANUSB_TESTS=OFF -DYORVANUSB_TOOLS=OFF \
    -DCMAKE_SYSTEM_NAME=Darwin -DCMAKE_SYSTEM_VERSION=20.0 -DCMAKE_OSX_SYSROOT="$sdk" \
    -DCMAKE_CXX_COMPILER="$llvm/clang++" -DCMAKE_CXX_COMPILER_TARGET=arm64-apple-macos11.0 \
    -DCMAKE_CXX_FLAGS="-stdlib=libc++ -Wno-unused-command-line-argument $headers" \
    -DCMAKE_EXE_LINKER_FLAGS="-fuse-ld=lld -Wl,-undefined,dynamic_lookup" \
    -DCMAKE_SHARED_LINKER_FLAGS="-fuse-ld=lld -Wl,-undefined,dynamic_lookup" &&
    cmake --build "$build" && cmake --install "$build" --prefix "$work/prefix"
}
build_it >"$work/log" 2>&1 || {
  tail -n 40 "$work/log" >&2
  exit 1
}

# ---- What came out ----

status=0
library=$work/prefix/lib/libYorvanUsb.5.dylib
says() { # says WHAT RESULT
  if [ "$2" = 0 ]; then
    echo "macos: $arch: $1"
  else
    echo "macos: $arch: NOT SO: $1" >&2
    status=1
  fi
}
shows() { # shows WHAT PATTERN OPTION...: objdump prints a line that fits the pattern
  result=0
  "$llvm/llvm-objdump" --macho --arch="$arch" "${@:3}" "$library" | grep -E -- "$2" >/dev/null || result=1
  says "$1" $result
}

for arch in arm64 x86_64; do
  for declarations in "$here/headers" "$root/port/apple/include"; do
    result=0
    "$llvm/clang++" -target "$arch-apple-macos11.0" -std=c++17 -Wall -Wextra -Werror -fsyntax-only \
      -nostdlibinc -I "$declarations" "$here/layout.cpp" || result=1
    says "has the published types and layouts in ${declarations#"$root/"}" $result
  done
  shows "is called @rpath/libYorvanUsb.5.dylib, version 5.0.0, compatible with 5.0.0" \
    '@rpath/libYorvanUsb.5.dylib \(compatibility version 5.0.0, current version 5.0.0\)' --dylibs-used
  shows "needs the core library, version 2" '@rpath/libYorvanCore.2.dylib' --dylibs-used
  shows "looks for it in its own folder" '^@loader_path$' --rpaths
  shows "runs on macOS 11.0" 'minos 11.0' --private-headers
  shows "has two functions that the loader runs" '__mod_init_func +0*10 ' --section-headers
  result=0
  "$llvm/llvm-nm" --arch="$arch" --undefined-only --format=darwin "$library" >"$work/needed"
  grep -E ' _+k?(CF|IO)[A-Z].*\(from (CoreFoundation|IOKit)\)' "$work/needed" >/dev/null || result=1
  if grep -E ' _+k?(CF|IO)[A-Z].*\(dynamically' "$work/needed" >&2; then result=1; fi
  says "finds in the frameworks all that it uses of Apple's" $result
  result=0
  NM="$llvm/llvm-nm --arch=$arch" "$root/tests/check_exports.sh" "$library" "$root/cmake/exports/YorvanUsb.txt" >&2 || result=1
  says "exports exactly what is listed" $result
done
exit $status
