# Compiler flags for a build of the project itself. As part of another project it uses that project's flags.
option(YORVANUSB_WARNINGS_AS_ERRORS "Treat warnings as errors" OFF)  # ON in the presets for development
option(YORVANUSB_COVERAGE "Measure line coverage (gcc)" OFF)
set(YORVANUSB_SANITIZE "" CACHE STRING "Sanitizers, as a value of -fsanitize")

add_compile_options(-Wall -Wextra -Wpedantic $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # From C++20 on it is a false positive for "'" + std::string.
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  # The -beta warnings check the order of the locks.
  add_compile_options("$<$<COMPILE_LANGUAGE:CXX>:-Wthread-safety;-Wthread-safety-beta>")
endif()
if(YORVANUSB_WARNINGS_AS_ERRORS)
  add_compile_options(-Werror)
endif()

if(YORVANUSB_SANITIZE)
  add_compile_options(-fsanitize=${YORVANUSB_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${YORVANUSB_SANITIZE})
elseif(NOT APPLE AND NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
  add_link_options(LINKER:--no-undefined)  # a sanitizer's own symbols would count as undefined
endif()
if(YORVANUSB_COVERAGE)
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()
