# What the project's libraries have in common.
include(${CMAKE_CURRENT_LIST_DIR}/exports.cmake)

# yorvan_library(TARGET VERSION version NAMESPACE package EXPORT_NAME name [EXPORTS list])
#
# Makes TARGET known as package::name, here and to whoever finds it installed. The library exports what
# cmake/exports/TARGET.txt, or list.txt there, lists and nothing else. It looks for its fellow libraries in its own
# folder, and for a host's own core library in that one's folder too.
function(yorvan_library target)
  cmake_parse_arguments(arg "" "VERSION;NAMESPACE;EXPORT_NAME;EXPORTS" "" ${ARGN})
  string(REGEX MATCH "^[0-9]+" major ${arg_VERSION})

  add_library(${arg_NAMESPACE}::${arg_EXPORT_NAME} ALIAS ${target})
  target_compile_features(${target} PUBLIC cxx_std_17)
  if(NOT APPLE)  # where it is so anyway, and clang objects to the flag
    # A call from one of the library's own functions to another cannot be redirected, and may be inlined.
    target_compile_options(${target} PRIVATE -fno-semantic-interposition)
  endif()
  set_target_properties(${target} PROPERTIES
    EXPORT_NAME ${arg_EXPORT_NAME}
    INSTALL_RPATH_USE_LINK_PATH ON
    VERSION ${arg_VERSION} SOVERSION ${major}
    CXX_EXTENSIONS OFF CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  if(APPLE)
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "@loader_path" INSTALL_NAME_DIR "@rpath")
  else()
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "\$ORIGIN")
  endif()

  if(NOT arg_EXPORTS)
    set(arg_EXPORTS ${target})
  endif()
  yorvan_exports(${target} ${PROJECT_SOURCE_DIR}/cmake/exports/${arg_EXPORTS}.txt)
endfunction()
