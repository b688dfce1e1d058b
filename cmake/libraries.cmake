# Common settings of the project's libraries.
include(${CMAKE_CURRENT_LIST_DIR}/exports.cmake)

# Shared, unless the build or the project around it has chosen static libraries.
if(DEFINED BUILD_SHARED_LIBS AND NOT BUILD_SHARED_LIBS)
  set(YORVANUSB_LIBRARY_TYPE STATIC)
else()
  set(YORVANUSB_LIBRARY_TYPE SHARED)
endif()

# The definition that clients of a static library are compiled with, by package.
set(static_definition_of_YorvanCore YORVANCORE_STATIC)
set(static_definition_of_YorvanUsb YUSB_STATIC)

# yorvan_library(TARGET VERSION version NAMESPACE package EXPORT_NAME name [EXPORTS list] [SYMBOL_VERSIONS prefix])
#
# Makes TARGET available as package::name, here and from an installation. A shared library exports exactly the symbols
# in cmake/exports/TARGET.txt, or list.txt there, with symbol versions if there is a prefix for them. Its run path is its
# own folder, where the other libraries are, and the folder of a host's own core library.
function(yorvan_library target)
  cmake_parse_arguments(arg "" "VERSION;NAMESPACE;EXPORT_NAME;EXPORTS;SYMBOL_VERSIONS" "" ${ARGN})
  string(REGEX MATCH "^[0-9]+" major ${arg_VERSION})

  add_library(${arg_NAMESPACE}::${arg_EXPORT_NAME} ALIAS ${target})
  target_compile_features(${target} PUBLIC cxx_std_17)
  if(NOT APPLE)  # where it is the default, and clang rejects the flag
    # Calls between the library's own functions cannot be interposed and may be inlined.
    target_compile_options(${target} PRIVATE -fno-semantic-interposition)
  endif()
  set_target_properties(${target} PROPERTIES
    EXPORT_NAME ${arg_EXPORT_NAME}
    VERSION ${arg_VERSION} SOVERSION ${major}
    CXX_EXTENSIONS OFF CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)

  if(YORVANUSB_LIBRARY_TYPE STREQUAL STATIC)
    # For clients that are shared libraries. They do not export this library's symbols again, so that two clients in
    # one process, each with its own copy, do not interfere.
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
    target_compile_definitions(${target} PUBLIC ${static_definition_of_${arg_NAMESPACE}})
    return()
  endif()
  set_target_properties(${target} PROPERTIES INSTALL_RPATH_USE_LINK_PATH ON)
  if(APPLE)
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "@loader_path" INSTALL_NAME_DIR "@rpath")
  else()
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "\$ORIGIN")
  endif()
  if(NOT arg_EXPORTS)
    set(arg_EXPORTS ${target})
  endif()
  yorvan_exports(${target} ${PROJECT_SOURCE_DIR}/cmake/exports/${arg_EXPORTS}.txt ${arg_SYMBOL_VERSIONS})
endfunction()
