# Installation into a prefix, which may be moved afterwards. Each component is a Debian package.
include(CMakePackageConfigHelpers)
option(YORVANUSB_DEBIAN "Use the layout of Debian packages" OFF)
if(YORVANUSB_DEBIAN)
  set(zsh_dir zsh/vendor-completions)
  set(development_docs libyorvanusb-dev)
else()
  set(development_docs yorvanusb)
  set(zsh_dir zsh/site-functions)
endif()

set(components_of_library ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_COMPONENT development)
set(cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake)
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH pcfiledir_to_prefix /prefix/${pkgconfig_dir} /prefix)
string(REGEX REPLACE "/$" "" pcfiledir_to_prefix ${pcfiledir_to_prefix})

# yorvan_package(PACKAGE VERSION): installs the CMake package of the targets exported as ${PACKAGE}Targets.
function(yorvan_package package version)
  install(EXPORT ${package}Targets NAMESPACE ${package}::
    DESTINATION ${cmake_dir}/${package} COMPONENT development)
  configure_package_config_file(cmake/${package}Config.cmake.in ${package}Config.cmake
    INSTALL_DESTINATION ${cmake_dir}/${package} NO_SET_AND_CHECK_MACRO)
  write_basic_package_version_file(${package}ConfigVersion.cmake
    VERSION ${version} COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/${package}Config.cmake ${PROJECT_BINARY_DIR}/${package}ConfigVersion.cmake
    DESTINATION ${cmake_dir}/${package} COMPONENT development)
endfunction()

# yorvan_pkgconfig(MODULE [DEFINITION FLAG...]): installs a pkg-config module. For static libraries, clients are
# compiled with DEFINITION and linked with FLAGs in addition to the module's Requires, without pkg-config --static.
function(yorvan_pkgconfig module)
  list(POP_FRONT ARGN definition)
  list(JOIN ARGN " " private_libs)
  if(YORVANUSB_LIBRARY_TYPE STREQUAL STATIC)
    set(static_libs ${private_libs})
    set(static_cflags -D${definition})
  endif()
  configure_file(cmake/${module}.pc.in ${module}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${module}.pc DESTINATION ${pkgconfig_dir} COMPONENT development)
endfunction()

# yorvan_manual(COMPONENT PAGE): installs a manual page, compressed in a Debian package.
function(yorvan_manual component page)
  get_filename_component(name ${page} NAME)
  string(REGEX MATCH "[0-9]$" section ${name})
  if(YORVANUSB_DEBIAN)
    configure_file(${page} ${PROJECT_BINARY_DIR}/debian/${name} COPYONLY)
    execute_process(COMMAND gzip -9nkf ${PROJECT_BINARY_DIR}/debian/${name} COMMAND_ERROR_IS_FATAL ANY)
    set(page ${PROJECT_BINARY_DIR}/debian/${name}.gz)
  endif()
  install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
endfunction()

# ---- The core library ----

if(YORVANUSB_OWN_CORE)
  install(TARGETS YorvanCore EXPORT YorvanCoreTargets ${components_of_library} COMPONENT core
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(DIRECTORY port/core/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
  yorvan_package(YorvanCore ${YORVANCORE_VERSION})
  yorvan_pkgconfig(YorvanCore YORVANCORE_STATIC -pthread)
  set(core_requires "Requires: YorvanCore")
else()
  # Clients of the library find the same core library with the same module.
  install(FILES cmake/FindYorvanCore.cmake DESTINATION ${cmake_dir}/YorvanUsb COMPONENT development)
  get_target_property(core_includes YorvanCore::YorvanCore INTERFACE_INCLUDE_DIRECTORIES)
  list(TRANSFORM core_includes PREPEND "-I")
  list(JOIN core_includes " " core_cflags)
  get_target_property(core_library YorvanCore::YorvanCore LOCATION)
endif()

# ---- The library ----

install(TARGETS YorvanUsb EXPORT YorvanUsbTargets ${components_of_library} COMPONENT runtime
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development FILES_MATCHING PATTERN "*.h")
yorvan_package(YorvanUsb ${PROJECT_VERSION})
if(APPLE)
  yorvan_pkgconfig(YorvanUsb YUSB_STATIC ${frameworks} -pthread)
else()
  yorvan_pkgconfig(YorvanUsb YUSB_STATIC -lYorvanUsbBus -pthread)
endif()

# ---- The bus library, with the simulated bus except on macOS ----

install(TARGETS YorvanUsbBus EXPORT YorvanUsbTargets ${components_of_library} COMPONENT runtime
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY port/bus/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
yorvan_pkgconfig(YorvanUsbBus)
if(NOT APPLE)
  install(DIRECTORY port/simulator/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
  yorvan_pkgconfig(YorvanUsbSimulator)
endif()

# ---- The library for C ----

if(TARGET YorvanUsbC)
  install(TARGETS YorvanUsbC EXPORT YorvanUsbTargets ${components_of_library} COMPONENT c
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(DIRECTORY bindings/c/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
  if(YORVANUSB_LIBRARY_TYPE STREQUAL STATIC)
    set(c_requires "Requires: YorvanUsbBus = ${PROJECT_VERSION}")
  endif()
  if(APPLE)
    yorvan_pkgconfig(YorvanUsbC YUSB_STATIC -lc++)
  else()
    yorvan_pkgconfig(YorvanUsbC YUSB_STATIC -lstdc++)
  endif()
endif()

# ---- The program ----

if(TARGET yusb)
  file(RELATIVE_PATH bin_to_lib /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${CMAKE_INSTALL_LIBDIR})
  if(APPLE)
    set_target_properties(yusb PROPERTIES INSTALL_RPATH "@loader_path/${bin_to_lib}")
  else()
    set_target_properties(yusb PROPERTIES INSTALL_RPATH "\$ORIGIN/${bin_to_lib}")
  endif()
  install(TARGETS yusb RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
  install(FILES tools/completion/yusb.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    RENAME yusb COMPONENT tool)
  install(FILES tools/completion/_yusb DESTINATION ${CMAKE_INSTALL_DATADIR}/${zsh_dir} COMPONENT tool)
  install(FILES examples/lab.scenario examples/yusb-journal.service
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/yusb/examples COMPONENT tool)
  foreach(page IN ITEMS yusb.1 yusb-json.5 yusb-scenario.5 yusb-filter.7)
    yorvan_manual(tool docs/man/${page})
  endforeach()
endif()
if(TARGET yusb-fleet)
  include(fleet/install.cmake)
endif()
yorvan_manual(development docs/man/yusb.3)
install(FILES examples/CMakeLists.txt examples/client.cpp examples/client_test.cpp examples/phone_shelf.h
  examples/event_loops.cmake examples/loop_asio.cpp examples/loop_epoll.cpp examples/loop_glib.cpp examples/print_event.h
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${development_docs}/examples COMPONENT development)

if(YORVANUSB_DEBIAN)
  include(cmake/packages.cmake)
endif()
