# Debian packages, one a component of the installation. They carry one version, the project's.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME yorvanusb)
set(CPACK_PACKAGE_VENDOR "The YorvanUsb authors")
set(CPACK_PACKAGE_CONTACT "The YorvanUsb authors <maintainers@yorvanusb.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # it would stand above each package's own
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 0yorvan1)  # below that of a package of Debian's own
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# What a package links to decides what it depends on. The project's own libraries have no package yet when that is
# looked up: they are found where they were built, and named by the components' order instead.
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

# yorvan_debian_symbols(PACKAGE LIBRARY FIRST [PREFIX]): which version of PACKAGE brought each symbol of LIBRARY: FIRST,
# unless the list of its symbols says "# since VERSION". PREFIX is that of its symbol versions. finish.sh compares this
# with the library.
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
    if(CMAKE_SIZEOF_VOID_P EQUAL 8)
      string(REPLACE "size_t" "unsigned long" name "${name}")
    else()
      string(REPLACE "size_t" "unsigned int" name "${name}")
    endif()
    if(prefix)
      string(REGEX MATCH "^[0-9]+[.][0-9]+" version ${since})
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
  "texts and the log of the Yorvan libraries"
  "A byte-exact string class, a log that a host program can redirect, and a\nmillisecond sleep: what the Yorvan libraries have in common.")
yorvan_debian_package(runtime libyorvanusb5 libs
  "which USB devices are attached, as they come and go"
  "Keeps one list of the USB devices that are attached, and tells every client of\neach one that arrives or leaves, with its numbers, its texts and a location\nthat is the same at both. Reads the kernel's events and sysfs itself: it needs\nneither udev nor privileges."
  core)
yorvan_debian_package(c libyorvanusbc1 libs
  "which USB devices are attached - library for C"
  "Lists and watches the USB devices that are attached. The interface is plain C,\nfor programs in C and for the bindings of other languages."
  runtime core)
yorvan_debian_package(development libyorvanusb-dev libdevel
  "which USB devices are attached - development files"
  "Headers, CMake packages and pkg-config modules for programs that watch the USB\nbus, and a simulated bus for their tests."
  runtime c core)
yorvan_debian_package(tool yusb utils
  "list and watch the USB devices that are attached"
  "Shows the USB devices that are attached, and every one that comes or goes, as\naligned text or as JSON for scripts, or waits for a chosen one."
  runtime core)
file(WRITE ${PROJECT_BINARY_DIR}/debian/libyorvancore2.symbols "")
yorvan_debian_symbols(libyorvancore2 YorvanCore 5.0.0)
# The bus library is in the package of the library that needs it, in the same version. What it exports is not promised
# from one version to the next, so a package that is linked to it keeps to one.
file(WRITE ${PROJECT_BINARY_DIR}/debian/libyorvanusb5.symbols
  "libYorvanUsbBus.so.${PROJECT_VERSION_MAJOR} libyorvanusb5 (= ${deb_version})\n* Build-Depends-Package: libyorvanusb-dev\n (regex)\".*\" ${PROJECT_VERSION}\n")
yorvan_debian_symbols(libyorvanusb5 YorvanUsb 5.0.0)
file(WRITE ${PROJECT_BINARY_DIR}/debian/libyorvanusbc1.symbols "")
yorvan_debian_symbols(libyorvanusbc1 YorvanUsbC 5.1.0 YUSB_C)
include(CPack)
