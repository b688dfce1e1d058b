#!/bin/bash
# run.sh BUILD: installs the built project from BUILD into a fresh prefix, moves that, and builds clients against it
# and nothing else; then against the source tree as a subproject, and against a host's own core library.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
source_tree=$(cd "$here/../.." && pwd)
build=$(cd "$1" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cxx=${CXX:-c++}

step() { echo "consumers: $*"; }
fail() {
  echo "consumers: $*" >&2
  exit 1
}
quietly() {
  "$@" >"$work/log" 2>&1 || {
    cat "$work/log" >&2
    fail "failed: $*"
  }
}

configure() { quietly cmake -S "$here" -G Ninja -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF -B "$@"; }
run_both() {
  quietly "$1/client" 0
  quietly "$1/simulated"
}
works_through_cmake() {
  configure "$work/$1" "-DCMAKE_PREFIX_PATH=$prefix"
  grep -q "^YorvanUsb_DIR:PATH=${prefix%%;*}/" "$work/$1/CMakeCache.txt" || fail "another copy was found"
  quietly cmake --build "$work/$1"
  run_both "$work/$1"
}

step "install, then move the prefix"
quietly cmake --install "$build" --prefix "$work/first prefix"
mv "$work/first prefix" "$work/moved"
prefix=$work/moved
if grep -rlF -e "$source_tree" -e "$build" -e "first prefix" "$prefix"; then
  fail "these installed files name a folder of the build"
fi
if [ -x "$prefix/bin/yusb" ]; then
  quietly env -u LD_LIBRARY_PATH "$prefix/bin/yusb" --version
fi

step "find_package"
works_through_cmake found
quietly cmake -S "$source_tree/examples" -B "$work/examples" -G Ninja -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF \
  "-DCMAKE_PREFIX_PATH=$prefix"
quietly cmake --build "$work/examples"
quietly ctest --test-dir "$work/examples" --output-on-failure
for wrong in "YorvanUsb 4" "YorvanUsb 5.99" "YorvanUsb 5 COMPONENTS Nonsense" "YorvanCore 1"; do
  mkdir -p "$work/wrong"
  printf 'cmake_minimum_required(VERSION 3.20)\nproject(wrong CXX)\nfind_package(%s REQUIRED)\n' "$wrong" \
    >"$work/wrong/CMakeLists.txt"
  if cmake -S "$work/wrong" -B "$work/wrong/build" "-DCMAKE_PREFIX_PATH=$prefix" >/dev/null 2>&1; then
    fail "find_package($wrong) succeeds"
  fi
  rm -rf "$work/wrong"
done

step "pkg-config"
pkgconfig=$(dirname "$(find "$prefix" -name YorvanUsb.pc)")
libraries=$(dirname "$pkgconfig")
mkdir "$work/pc"
flags() { PKG_CONFIG_PATH='' PKG_CONFIG_LIBDIR=$pkgconfig pkg-config --cflags --libs "$@"; }
# shellcheck disable=SC2046 # flags are words
quietly "$cxx" "$source_tree/examples/client.cpp" -pthread -o "$work/pc/client" $(flags YorvanUsb)
# shellcheck disable=SC2046
quietly "$cxx" "$source_tree/examples/client_test.cpp" -pthread -o "$work/pc/simulated" $(flags YorvanUsbSimulator)
LD_LIBRARY_PATH=$libraries run_both "$work/pc"

step "the programs of the documents, with their commands"
PKG_CONFIG_PATH=$pkgconfig LD_LIBRARY_PATH=$libraries quietly "$source_tree/tests/documents/build.sh" \
  README.md docs/guide.md docs/man/yusb.3
mkdir "$work/readme"
{
  printf 'cmake_minimum_required(VERSION 3.20)\nproject(readme CXX)\nadd_executable(client client.cpp)\n'
  awk '/^```cmake$/ { inside = 1; next } /^```/ { inside = 0 } inside' "$source_tree/README.md"
} >"$work/readme/CMakeLists.txt"
awk -v prefix="$work/readme/client" -f "$source_tree/tests/documents/samples.awk" "$source_tree/README.md"
mv "$work/readme/client_1.cpp" "$work/readme/client.cpp"
quietly cmake -S "$work/readme" -B "$work/readme/build" -G Ninja -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF \
  "-DCMAKE_PREFIX_PATH=$prefix"
quietly cmake --build "$work/readme/build"

step "add_subdirectory"
configure "$work/sub" "-DYORVANUSB_SOURCE=$source_tree" -DCMAKE_EXPORT_COMPILE_COMMANDS=ON
quietly cmake --build "$work/sub"
run_both "$work/sub"
if grep -o -e '-W[a-z][a-z-]*' -e '-fsanitize[^ ]*' "$work/sub/compile_commands.json"; then
  fail "as a subproject the library forces these flags"
fi
quietly cmake --install "$work/sub" --prefix "$work/nothing"
if [ -e "$work/nothing" ]; then fail "as a subproject the library installs files"; fi
if [ -e "$work/sub/yorvanusb/tests" ] || [ -e "$work/sub/yorvanusb/tools" ]; then
  fail "as a subproject the library builds its tests or its program"
fi

step "a host's own core library"
mkdir -p "$work/host/include" "$work/host/lib"
cp -R "$prefix/include/YorvanCore" "$work/host/include/"
cp -P "$libraries"/libYorvanCore.* "$work/host/lib/"
quietly cmake -S "$source_tree" -B "$work/hosted" -G Ninja "-DYorvanCore_ROOT=$work/host" \
  -DYORVANUSB_TESTS=OFF -DYORVANUSB_TOOLS=OFF
quietly cmake --build "$work/hosted"
quietly cmake --install "$work/hosted" --prefix "$work/hosted prefix"
if find "$work/hosted prefix" -name '*YorvanCore.so*' -o -name YString.h | grep .; then
  fail "a copy that uses the host's core library installs one of its own"
fi
prefix="$work/hosted prefix;$work/host"
works_through_cmake with_host

step "passed"
