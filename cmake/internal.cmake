# yusb_internal: an archive of the objects of the libraries and the program. Tests, fuzzers and benchmarks that use
# symbols which no library exports link it, so that each source is compiled once per build.
set(targets YorvanUsb YorvanUsbBus)
set(core)
if(YORVANUSB_OWN_CORE)
  list(APPEND targets YorvanCore)
  set(core_includes ${PROJECT_SOURCE_DIR}/port/core/include)
else()
  set(core YorvanCore::YorvanCore)
  set(core_includes)
endif()
if(TARGET yusb_tool)
  list(APPEND targets yusb_format yusb_tool)
  set(text_library ${UTF8PROC_LIBRARY})
endif()
list(TRANSFORM targets REPLACE "(.+)" "$<TARGET_OBJECTS:\\1>")

add_library(yusb_internal STATIC EXCLUDE_FROM_ALL ${targets})
set_target_properties(yusb_internal PROPERTIES LINKER_LANGUAGE CXX)
target_compile_features(yusb_internal INTERFACE cxx_std_17)
target_include_directories(yusb_internal INTERFACE
  ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/port
  ${PROJECT_SOURCE_DIR}/port/apple/include ${PROJECT_SOURCE_DIR}/port/bus/include
  ${PROJECT_SOURCE_DIR}/port/simulator/include ${PROJECT_SOURCE_DIR}/tools ${core_includes})
target_link_libraries(yusb_internal INTERFACE ${core} ${text_library} Threads::Threads)
if(APPLE)
  target_link_libraries(yusb_internal INTERFACE ${frameworks})
endif()
