# What the project's shared libraries have in common.

# yorvan_library(TARGET VERSION version NAMESPACE package EXPORT_NAME name)
#
# Makes TARGET known as package::name, here and to whoever finds it installed. The library exports what
# cmake/exports/TARGET.txt lists and nothing else: hidden visibility alone would let through what the standard
# library's templates leave behind. It looks for its fellow libraries in its own folder, and for a host's own core library
# in that one's folder too.
function(yorvan_library target)
  cmake_parse_arguments(arg "" "VERSION;NAMESPACE;EXPORT_NAME" "" ${ARGN})
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

  set(list ${PROJECT_SOURCE_DIR}/cmake/exports/${target}.txt)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${list})
  file(STRINGS ${list} symbols REGEX "^[^#]")
  if(APPLE)
    # The list has libstdc++'s names; libc++ keeps its own std::function in a namespace within std.
    list(TRANSFORM symbols REPLACE "St8function(.*EE)" "NSt3__18function\\1E")
    list(TRANSFORM symbols PREPEND "_")
    list(JOIN symbols "\n" text)
    set(script ${CMAKE_CURRENT_BINARY_DIR}/${target}.exp)
    file(CONFIGURE OUTPUT ${script} CONTENT "${text}\n" @ONLY)
    target_link_options(${target} PRIVATE "LINKER:-exported_symbols_list,${script}")
  else()
    list(TRANSFORM symbols APPEND ";")
    string(REPLACE ";;" ";\n" text "${symbols};")
    set(script ${CMAKE_CURRENT_BINARY_DIR}/${target}.map)
    file(CONFIGURE OUTPUT ${script} CONTENT "{ global:\n${text}local: *; };\n" @ONLY)
    target_link_options(${target} PRIVATE "LINKER:--version-script=${script}")
  endif()
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${script})
endfunction()
