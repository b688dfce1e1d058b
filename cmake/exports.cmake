# What a shared library exports: the functions and variables of cmake/exports/LIBRARY.txt and nothing else. Hidden
# visibility alone would let through what the standard library's templates leave behind.
#
# A list holds demangled names, so it is the same for every processor, compiler and standard library. A linker needs
# mangled ones. They differ only in the parameters' types, so the linker gets patterns without these
# ("_ZN4yusb10bus_settle[EB]*"). Linkers accept a pattern that matches nothing, so the library is compared with its list
# after it is linked.

# Run as a script, compares a library with its list:
# cmake -DLIBRARY=FILE -DLIST=FILE "-DNM=nm[;ARGUMENT...]" -P exports.cmake
if(CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
  # What depends on the demangler, the standard library or the size of a pointer is spelled one way: size_t,
  # std::chrono::milliseconds, nothing of inline namespaces and ABI tags.
  function(yorvan_normalize text out)
    string(REGEX REPLACE "\\[abi:[^]]*\\]" "" text "${text}")
    string(REGEX REPLACE "std::__[a-z0-9]+::" "std::" text "${text}")
    string(REPLACE "> >" ">>" text "${text}")
    string(REGEX REPLACE "std::chrono::duration<long( long)?, std::ratio<1l+, 1000l+>>" "std::chrono::milliseconds"
      text "${text}")
    # A size_t is one of the two; "check abi" tells them apart.
    string(REGEX REPLACE "(unsigned (int|long)|size_t)([,)])" "unsigned\\3" text "${text}")
    string(REGEX MATCHALL "[^\n]+" lines "${text}")
    list(REMOVE_DUPLICATES lines)
    set(${out} "${lines}" PARENT_SCOPE)
  endfunction()

  if(LIBRARY MATCHES "\\.dylib$")
    set(arguments --extern-only --defined-only --demangle)
  else()
    set(arguments -D --defined-only -C)
  endif()
  execute_process(COMMAND ${NM} ${arguments} ${LIBRARY} OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
  # A letter of lower case is a local symbol, but for u and i.
  string(REGEX MATCHALL "[0-9a-f]+ [A-Zui] [^\n]+" symbols "${symbols}")
  list(TRANSFORM symbols REPLACE "^[0-9a-f]+ [A-Zui] " "")
  list(JOIN symbols "\n" symbols)
  yorvan_normalize("${symbols}" exported)
  file(STRINGS ${LIST} symbols REGEX "^[^#]")
  list(JOIN symbols "\n" symbols)
  yorvan_normalize("${symbols}" listed)

  set(missing ${listed})
  list(REMOVE_ITEM missing ${exported})
  list(REMOVE_ITEM exported ${listed})
  if(missing OR exported)
    list(TRANSFORM missing PREPEND "  listed, not exported: ")
    list(TRANSFORM exported PREPEND "  exported, not listed: ")
    set(differences ${missing} ${exported})
    list(JOIN differences "\n" differences)
    message(FATAL_ERROR "${LIBRARY} does not export what ${LIST} says:\n${differences}")
  endif()
  return()
endif()

# The pattern of the mangled names (Itanium C++ ABI) of a listed name.
function(yorvan_mangle name out)
  set(operator_= aS)
  set(operator_== eq)
  set(operator_!= ne)
  set(operator_< lt)
  if(name MATCHES "^(vtable|typeinfo|typeinfo name) for ([A-Za-z0-9_]+)$")
    set(prefix_vtable _ZTV)
    set(prefix_typeinfo _ZTI)
    set(prefix_typeinfo\ name _ZTS)
    string(LENGTH ${CMAKE_MATCH_2} length)
    set(mangled "${prefix_${CMAKE_MATCH_1}}${length}${CMAKE_MATCH_2}")
  elseif(name MATCHES "^[A-Za-z0-9_]+$")  # of C
    set(mangled ${name})
  elseif(name MATCHES "^([^(]+)\\(.*\\)( const)?$")
    set(const "${CMAKE_MATCH_2}")
    string(REPLACE "::" ";" parts "${CMAKE_MATCH_1}")
    set(mangled)
    set(previous)
    foreach(part IN LISTS parts)
      if(part STREQUAL previous)
        string(APPEND mangled "C[12]")
      elseif(part STREQUAL "~${previous}")
        string(APPEND mangled "D[012]")
      elseif(part MATCHES "^operator([^a-z]+)$")
        if(NOT operator_${CMAKE_MATCH_1})
          message(FATAL_ERROR "how '${part}' is mangled must be added to cmake/exports.cmake")
        endif()
        string(APPEND mangled ${operator_${CMAKE_MATCH_1}})
      else()
        string(LENGTH ${part} length)
        string(APPEND mangled ${length}${part})
      endif()
      set(previous ${part})
    endforeach()
    list(LENGTH parts depth)
    if(depth EQUAL 1)
      set(mangled "_Z${mangled}*")
    elseif(const)
      set(mangled "_ZNK${mangled}[EB]*")  # B begins an ABI tag
    else()
      set(mangled "_ZN${mangled}[EB]*")
    endif()
  else()
    message(FATAL_ERROR "'${name}' in cmake/exports is not understood")
  endif()
  set(${out} "${mangled}" PARENT_SCOPE)
endfunction()

# yorvan_exports(TARGET LIST): the shared library TARGET exports what the file LIST names.
function(yorvan_exports target list)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${list})
  file(STRINGS ${list} names REGEX "^[^#]")
  set(text)
  foreach(name IN LISTS names)
    yorvan_mangle("${name}" mangled)
    if(APPLE)
      string(APPEND text "_${mangled}\n")
    else()
      string(APPEND text "${mangled};\n")
    endif()
  endforeach()
  set(script ${CMAKE_CURRENT_BINARY_DIR}/${target}.map)
  if(APPLE)
    target_link_options(${target} PRIVATE "LINKER:-exported_symbols_list,${script}")
  else()
    set(text "{ global:\n${text}local: *; };\n")
    target_link_options(${target} PRIVATE "LINKER:--version-script=${script}")
  endif()
  file(CONFIGURE OUTPUT ${script} CONTENT "${text}" @ONLY)
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${script})
  add_custom_command(TARGET ${target} POST_BUILD VERBATIM
    COMMAND ${CMAKE_COMMAND} "-DLIBRARY=$<TARGET_FILE:${target}>" -DLIST=${list} -DNM=${CMAKE_NM}
      -P ${PROJECT_SOURCE_DIR}/cmake/exports.cmake)
endfunction()
