# Flags for work on the project itself. Whoever builds it as a part of something else has flags of their own.
option(YORVANUSB_WARNINGS_AS_ERRORS "Treat warnings as errors" OFF)  # the developers' presets do
option(YORVANUSB_COVERAGE "Count which lines run (gcc)" OFF)
set(YORVANUSB_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize takes them")

add_compile_options(-Wall -Wextra -Wpedantic $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)  # from C++20 on it takes "'" + std::string for an overlap
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  # The beta half checks the order of the locks.
  add_compile_options("$<$<COMPILE_LANGUAGE:CXX>:-Wthread-safety;-Wthread-safety-beta>")
endif()
if(YORVANUSB_WARNINGS_AS_ERRORS)
  add_compile_options(-Werror)
endif()

if(YORVANUSB_SANITIZE)
  add_compile_options(-fsanitize=${YORVANUSB_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${YORVANUSB_SANITIZE})
elseif(NOT APPLE AND NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
  add_link_options(LINKER:--no-undefined)  # it would take a sanitizer's own symbols for undefined ones
endif()
if(YORVANUSB_COVERAGE)
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()
