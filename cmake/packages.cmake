# Debian packages, one per component of the installation, all with the project's version.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME yorvanusb)
set(CPACK_PACKAGE_VENDOR "The YorvanUsb authors")
set(CPACK_PACKAGE_CONTACT "The YorvanUsb authors <maintainers@yorvanusb.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # otherwise added to each package's own summary
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 0yorvan1)  # lower than the release of an official Debian package
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# Dependencies are derived from the libraries that a package links to. The project's own libraries have no package at
# that time: they are searched for where they were built, and the dependencies between components are declared below.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(deb_version ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})
file(STRINGS CHANGELOG.md released REGEX "^## ${PROJECT_VERSION} - ")
string(REGEX REPLACE ".* - " "" released "${released}")
execute_process(COMMAND date -u -R -d "${released}" OUTPUT_VARIABLE deb_date OUTPUT_STRIP_TRAILING_WHITESPACE
  COMMAND_ERROR_IS_FATAL ANY)
configure_file(cmake/debian/changelog.in debian/changelog.Debian @ONLY)
execute_process(COMMAND gzip -9nf ${PROJECT_BINARY_DIR}/debian/changelog.Debian COMMAND_ERROR_IS_FATAL ANY)

# yorvan_debian_package(COMPONENT PACKAGE SECTION SUMMARY DESCRIPTION component it depends on...)
macro(yorvan_debian_package component package section summary description)
  string(TOUPPER ${component} upper)
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${description}")
  set(CPACK_COMPONENT_${upper}_DEPENDS ${ARGN})
  install(FILES ${PROJECT_BINARY_DIR}/debian/changelog.Debian.gz ${PROJECT_SOURCE_DIR}/cmake/debian/copyright
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
endmacro()

# yorvan_debian_symbols(PACKAGE LIBRARY FIRST [PREFIX]): writes which version of PACKAGE added each symbol of LIBRARY:
# FIRST, unless the list of its symbols says "# since VERSION". PREFIX is that of its symbol versions. finish.sh compares
# this with the library.
function(yorvan_debian_symbols package library first)
  set(prefix ${ARGN})
  set(versions)
  get_target_property(major ${library} SOVERSION)
  set(text "lib${library}.so.${major} ${package} #MINVER#\n* Build-Depends-Package: libyorvanusb-dev\n")
  file(STRINGS cmake/exports/${library}.txt names REGEX "^[^#]")
  foreach(name IN LISTS names)
    set(since ${first})
    if(name MATCHES "^(.*[^ ]) +# since (.*)$")
      set(name "${CMAKE_MATCH_1}")
      set(since "${CMAKE_MATCH_2}")
    endif()
    string(REGEX MATCH "^[0-9]+[.][0-9]+" version ${since})
    if(since VERSION_GREATER PROJECT_VERSION)
      set(since ${PROJECT_VERSION})  # the next version, in packages that are made before its release
    endif()
    if(CMAKE_SIZEOF_VOID_P EQUAL 8)
      string(REPLACE "size_t" "unsigned long" name "${name}")
    else()
      string(REPLACE "size_t" "unsigned int" name "${name}")
    endif()
    if(prefix)
      string(APPEND text " ${name}@${prefix}_${version} ${since}\n")
      list(APPEND versions " ${prefix}_${version}@${prefix}_${version} ${since}\n")
    else()
      string(APPEND text " (c++)\"${name}@Base\" ${since}\n")
    endif()
  endforeach()
  list(REMOVE_DUPLICATES versions)
  file(APPEND ${PROJECT_BINARY_DIR}/debian/${package}.symbols "${text}" ${versions})
endfunction()

foreach(component IN ITEMS CORE RUNTIME C)
  set(CPACK_DEBIAN_${component}_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)
endforeach()

set(CPACK_COMPONENTS_ALL)
yorvan_debian_package(core libyorvancore2 libs
  "strings and log of the Yorvan libraries"
  "The common parts of the Yorvan libraries: a byte string, a log that a host\nprogram can redirect, and a sleep function.")
yorvan_debian_package(runtime libyorvanusb5 libs
  "library that lists USB devices and reports changes"
  "Lists the attached USB devices and reports every device that is attached or\ndetached, with its IDs, its strings and its location. Reads uevents and sysfs\ndirectly: it needs neither udev nor privileges."
  core)
yorvan_debian_package(c libyorvanusbc1 libs
  "library that lists USB devices - C interface"
  "Lists the attached USB devices and reports changes, with an interface in plain\nC for programs in C and for bindings to other languages."
  runtime core)
yorvan_debian_package(development libyorvanusb-dev libdevel
  "library that lists USB devices - development files"
  "Headers, CMake packages and pkg-config modules for programs that watch the USB\nbus, and a simulated bus for their tests."
  runtime c core)
yorvan_debian_package(tool yusb utils
  "list and watch the USB devices that are attached"
  "Shows the attached USB devices, and every device that is attached or detached,\nas aligned columns or as JSON for scripts, or waits for a chosen device."
  runtime core)
if(TARGET yusb-fleet)
  yorvan_debian_package(fleet yusb-fleet net
    "USB devices of many hosts over MQTT"
    "An agent publishes the USB devices of its host to an MQTT broker. Anywhere, the\nprogram lists and watches the devices of all hosts, waits for one of them, and\nwrites metrics for Prometheus."
    runtime core)
  set(CPACK_DEBIAN_FLEET_PACKAGE_SUGGESTS "mosquitto, yusb")
  set(fleet_scripts ${PROJECT_SOURCE_DIR}/fleet/debian)
  set(CPACK_DEBIAN_FLEET_PACKAGE_CONTROL_EXTRA ${fleet_scripts}/postinst ${fleet_scripts}/prerm ${fleet_scripts}/postrm)
endif()
yorvan_debian_package(python python3-yorvanusb python
  "library that lists USB devices - Python 3 interface"
  "Lists the attached USB devices and reports changes, to for loops and to\nasyncio. Includes a simulated bus for tests, and a pytest fixture that creates\none."
  c)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3:any (>= 3.9)")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_PYTHON_DEBUGINFO_PACKAGE OFF)
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA
  ${PROJECT_SOURCE_DIR}/cmake/debian/python/postinst ${PROJECT_SOURCE_DIR}/cmake/debian/python/prerm)
set(python_dir ${CMAKE_INSTALL_PREFIX}/lib/python3/dist-packages)
install(DIRECTORY bindings/python/yorvanusb DESTINATION ${python_dir} COMPONENT python
  PATTERN __pycache__ EXCLUDE PATTERN .mypy_cache EXCLUDE)
execute_process(COMMAND python3 -B -c "import backend, sys; backend.prepare_metadata_for_build_wheel(sys.argv[1])"
    ${PROJECT_BINARY_DIR}/debian/python
  WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}/bindings/python COMMAND_ERROR_IS_FATAL ANY)
install(DIRECTORY ${PROJECT_BINARY_DIR}/debian/python/ DESTINATION ${python_dir} COMPONENT python)
file(WRITE ${PROJECT_BINARY_DIR}/debian/libyorvancore2.symbols "")
yorvan_debian_symbols(libyorvancore2 YorvanCore 5.0.0)
# The bus library is in the same package as libYorvanUsb. Its exports may change with each version, so a package that
# links to it depends on exactly one version.
file(WRITE ${PROJECT_BINARY_DIR}/debian/libyorvanusb5.symbols
  "libYorvanUsbBus.so.${PROJECT_VERSION_MAJOR} libyorvanusb5 (= ${deb_version})\n* Build-Depends-Package: libyorvanusb-dev\n (regex)\".*\" ${PROJECT_VERSION}\n")
yorvan_debian_symbols(libyorvanusb5 YorvanUsb 5.0.0)
file(WRITE ${PROJECT_BINARY_DIR}/debian/libyorvanusbc1.symbols "")
yorvan_debian_symbols(libyorvanusbc1 YorvanUsbC 5.1.0 YUSB_C)
include(CPack)
