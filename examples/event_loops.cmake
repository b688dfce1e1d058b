# Adds a target for each example of an event loop that can be built, and lists it in EVENT_LOOPS. EVENT_LOOPS_NOT_BUILT
# and a message list the other examples and what they need.
include(CheckCXXSourceCompiles)
include(CheckIncludeFileCXX)

set(event_loops_folder ${CMAKE_CURRENT_LIST_DIR})
set(EVENT_LOOPS)
set(EVENT_LOOPS_NOT_BUILT)
macro(event_loop name possible needs)
  if(${possible})
    list(APPEND EVENT_LOOPS ${name})
    add_executable(${name} ${event_loops_folder}/${name}.cpp)
    target_link_libraries(${name} PRIVATE YorvanUsb::YorvanUsb Threads::Threads ${ARGN})
  else()
    list(APPEND EVENT_LOOPS_NOT_BUILT "${name} needs ${needs}")
    message(STATUS "Not built: examples/${name}.cpp needs ${needs}")
  endif()
endmacro()

check_include_file_cxx(sys/epoll.h YUSB_EPOLL)
event_loop(loop_epoll YUSB_EPOLL "Linux")

find_package(PkgConfig QUIET)
if(PKG_CONFIG_FOUND)
  pkg_check_modules(YUSB_GLIB QUIET IMPORTED_TARGET glib-2.0)
endif()
event_loop(loop_glib YUSB_GLIB_FOUND "libglib2.0-dev" PkgConfig::YUSB_GLIB)

set(CMAKE_REQUIRED_FLAGS ${CMAKE_CXX20_STANDARD_COMPILE_OPTION})
# Asio declares awaitable only if the compiler and its library have coroutines.
check_cxx_source_compiles("#include <asio.hpp>\nasio::awaitable<void> nothing() { co_return; }\nint main() {}" YUSB_ASIO)
unset(CMAKE_REQUIRED_FLAGS)
event_loop(loop_asio YUSB_ASIO "libasio-dev and C++20 coroutines")
if(TARGET loop_asio)
  target_compile_features(loop_asio PRIVATE cxx_std_20)
endif()
