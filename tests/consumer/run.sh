#!/bin/bash
# run.sh BUILD: installs the build in BUILD into a fresh prefix, moves the prefix, and builds clients against only this
# copy; then against the source tree as a subproject, and with a host's own core library.
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

# build_project SOURCE FOLDER [OPTION...]
build_project() {
  quietly cmake -S "$1" -B "$2" -G Ninja -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF "${@:3}"
  quietly cmake --build "$2"
}
run_both() {
  quietly "$1/client" 0
  quietly "$1/simulated"
}
works_through_cmake() {
  build_project "$here" "$work/$1" "-DCMAKE_PREFIX_PATH=$prefix"
  grep -q "^YorvanUsb_DIR:PATH=${prefix%%;*}/" "$work/$1/CMakeCache.txt" || fail "another copy was found"
  run_both "$work/$1"
}

step "install, then move the prefix"
quietly cmake --install "$build" --prefix "$work/first prefix"
mv "$work/first prefix" "$work/moved"
prefix=$work/moved
if grep -rlF -e "$source_tree" -e "$build" -e "first prefix" "$prefix"; then
  fail "these installed files contain a path of the build"
fi
if [ -x "$prefix/bin/yusb" ]; then
  quietly env -u LD_LIBRARY_PATH "$prefix/bin/yusb" --version
fi

step "find_package"
works_through_cmake found
build_project "$source_tree/examples" "$work/examples" "-DCMAKE_PREFIX_PATH=$prefix"
quietly ctest --test-dir "$work/examples" --output-on-failure
mkdir "$work/old"
printf '%s\n' 'cmake_minimum_required(VERSION 3.20)' 'project(old CXX)' 'find_package(YorvanUsb 5 REQUIRED COMPONENTS Simulator)' \
  "add_executable(old $source_tree/examples/client_test.cpp)" 'target_link_libraries(old YorvanUsb::Simulator YorvanUsb::YorvanUsb)' \
  >"$work/old/CMakeLists.txt" # the names of version 5.0
build_project "$work/old" "$work/old/build" "-DCMAKE_PREFIX_PATH=$prefix"
for wrong in "YorvanUsb 4" "YorvanUsb 5.99" "YorvanUsb 5 COMPONENTS Nonsense" "YorvanCore 1"; do
  mkdir -p "$work/wrong"
  printf 'cmake_minimum_required(VERSION 3.20)\nproject(wrong CXX)\nfind_package(%s REQUIRED)\n' "$wrong" \
    >"$work/wrong/CMakeLists.txt"
  if cmake -S "$work/wrong" -B "$work/wrong/build" "-DCMAKE_PREFIX_PATH=$prefix" >/dev/null 2>&1; then
    fail "find_package($wrong) succeeds"
  fi
  rm -rf "$work/wrong"
done

step "a client in C, in a project without C++"
mkdir "$work/c"
awk -v prefix="$work/c/sample" -f "$source_tree/tests/documents/samples.awk" "$source_tree/docs/c.md"
printf '%s\n' 'cmake_minimum_required(VERSION 3.20)' 'project(c C)' 'find_package(YorvanUsb 5 REQUIRED COMPONENTS C)' \
  'add_executable(simulated sample_2.c)' 'target_link_libraries(simulated YorvanUsb::C)' >"$work/c/CMakeLists.txt"
build_project "$work/c" "$work/c/build" "-DCMAKE_PREFIX_PATH=$prefix"
quietly "$work/c/build/simulated"

step "pkg-config"
pkgconfig_of() { dirname "$(find "$1" -name YorvanUsb.pc)"; }
pkgconfig=$(pkgconfig_of "$prefix")
libraries=$(dirname "$pkgconfig")
mkdir "$work/pc"
flags() { PKG_CONFIG_PATH='' PKG_CONFIG_LIBDIR=$pkgconfig pkg-config --cflags --libs "$@"; }
# shellcheck disable=SC2046 # flags are words
quietly "$cxx" "$source_tree/examples/client.cpp" -pthread -o "$work/pc/client" $(flags YorvanUsb)
for module in YorvanUsbSimulator YorvanUsbBus; do # the first is the name of the second in version 5.0
  # shellcheck disable=SC2046
  quietly "$cxx" "$source_tree/examples/client_test.cpp" -pthread -o "$work/pc/simulated" $(flags $module)
done
LD_LIBRARY_PATH=$libraries run_both "$work/pc"

step "the programs of the documents, with their commands"
PKG_CONFIG_PATH=$pkgconfig LD_LIBRARY_PATH=$libraries quietly "$source_tree/tests/documents/build.sh" \
  README.md docs/guide.md docs/device-details.md docs/testing.md docs/handlers.md docs/c.md docs/man/yusb.3
mkdir "$work/readme"
{
  printf 'cmake_minimum_required(VERSION 3.20)\nproject(readme CXX)\nadd_executable(client client.cpp)\n'
  awk '/^```cmake$/ { inside = 1; next } /^```/ { inside = 0 } inside' "$source_tree/README.md"
} >"$work/readme/CMakeLists.txt"
awk -v prefix="$work/readme/client" -f "$source_tree/tests/documents/samples.awk" "$source_tree/README.md"
mv "$work/readme/client_1.cpp" "$work/readme/client.cpp"
build_project "$work/readme" "$work/readme/build" "-DCMAKE_PREFIX_PATH=$prefix"

step "add_subdirectory, by way of FetchContent"
build_project "$here" "$work/sub" "-DYORVANUSB_SOURCE=$source_tree" -DCMAKE_EXPORT_COMPILE_COMMANDS=ON
run_both "$work/sub"
if grep -o -e '-W[a-z][a-z-]*' -e '-fsanitize[^ ]*' "$work/sub/compile_commands.json"; then
  fail "as a subproject the library imposes these flags"
fi
quietly cmake --install "$work/sub" --prefix "$work/client alone"
if find "$work/client alone" -name '*orvan*' -o -name 'yusb*' | grep .; then
  fail "as a subproject the library installs files by default"
fi
if [ -e "$work/sub/yorvanusb/tests" ] || [ -e "$work/sub/yorvanusb/tools" ]; then
  fail "as a subproject the library builds its tests or yusb"
fi

step "a client installed with the library beside it"
build_project "$here" "$work/sub" -DYORVANUSB_INSTALL=ON
quietly cmake --install "$work/sub" --prefix "$work/installed"
mv "$work/installed" "$work/beside"
run_both "$work/beside/bin"

step "static libraries"
# bundles LIBRARY: checks that it contains the three libraries and exports none of their symbols.
bundles() {
  nm -C "$1" | grep ' yusb::global_initialize()$' >/dev/null || fail "$1 does not contain the library"
  exported=$(nm -D --defined-only "$1" |
    sed -nE 's/.* (watch_once|_Z(N|NK|T[ISV])?[0-9]+(Y|_?y).*|k?(CF|IO).*|__CF.*)$/\1/p' | xargs)
  [ "$exported" = watch_once ] || fail "$1 exports $exported"
}
build_project "$here" "$work/sub static" "-DYORVANUSB_SOURCE=$source_tree" -DBUILD_SHARED_LIBS=OFF -DYORVANUSB_INSTALL=ON
run_both "$work/sub static"
bundles "$work/sub static/libplugin.so"
quietly cmake --install "$work/sub static" --prefix "$work/static first"
mv "$work/static first" "$work/static"
run_both "$work/static/bin"
prefix=$work/static
works_through_cmake "found static"
bundles "$work/found static/libplugin.so"
pkgconfig=$(pkgconfig_of "$work/static")
for option in "" --static; do
  rm -f "$work/pc"/*
  # shellcheck disable=SC2046,SC2086
  quietly "$cxx" "$source_tree/examples/client.cpp" -o "$work/pc/client" $(flags $option YorvanUsb)
  # shellcheck disable=SC2046,SC2086
  quietly "$cxx" "$source_tree/examples/client_test.cpp" -o "$work/pc/simulated" $(flags $option YorvanUsbBus)
  run_both "$work/pc"
done
if find "$work/static" "$work/sub static" -name 'lib[Yy]*.so*' | grep .; then fail "shared libraries were built"; fi
prefix=$work/moved

step "a host's own core library"
mkdir -p "$work/host/include" "$work/host/lib"
cp -R "$prefix/include/YorvanCore" "$work/host/include/"
cp -P "$libraries"/libYorvanCore.* "$work/host/lib/"
build_project "$source_tree" "$work/hosted" "-DYorvanCore_ROOT=$work/host" -DYORVANUSB_TESTS=OFF -DYORVANUSB_TOOLS=OFF
quietly cmake --install "$work/hosted" --prefix "$work/hosted prefix"
if find "$work/hosted prefix" -name '*YorvanCore.so*' -o -name YString.h | grep .; then
  fail "a build that uses the host's core library installs another one"
fi
prefix="$work/hosted prefix;$work/host"
works_through_cmake with_host

step "passed"
