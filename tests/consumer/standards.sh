#!/bin/bash
# standards.sh COMPILER...: checks that each public header, alone, compiles without warnings as C++17, 20 and 23, with
# the compiler's strict warnings, and that as C++14 it stops with a message.
set -euo pipefail
cd "$(dirname "$0")/../.."
folders=(include port/bus/include port/simulator/include port/core/include)
warnings="-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wnon-virtual-dtor
  -Woverloaded-virtual -Wundef -Wnull-dereference -Wdouble-promotion -Wformat=2 -Wcast-align -Wextra-semi
  -Wzero-as-null-pointer-constant"
status=0
for compiler in "$@"; do
  own="-Wsuggest-override -Wuseless-cast -Wduplicated-cond -Wlogical-op"
  case $compiler in *clang*) own="-Wdeprecated -Wdocumentation" ;; esac
  for header in $(for folder in "${folders[@]}"; do (cd "$folder" && find . -name '*.h' -printf '%P\n'); done); do
    compile() { # compile STANDARD OPTION...
      printf '#include <%s>\nint main() {}\n' "$header" |
        "$compiler" "-std=$1" -x c++ -fsyntax-only "${folders[@]/#/-I}" "${@:2}" -
    }
    for standard in c++17 c++20 c++2b; do
      # shellcheck disable=SC2086 # words
      compile $standard $warnings $own -Werror || {
        echo "standards: $header has warnings with $compiler -std=$standard" >&2
        status=1
      }
    done
    case $header in
      */*) ;; # included only by a header that has the message
      yusb*)
        if said=$(compile c++14 2>&1) || [[ $(grep error: <<<"$said" | head -n 1) != *"needs C++17"* ]]; then
          echo "standards: $header does not report with $compiler -std=c++14 that it needs C++17" >&2
          status=1
        fi
        ;;
    esac
  done
done
exit $status
