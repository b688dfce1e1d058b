# Finds a host's own core library and imports it as YorvanCore::YorvanCore. YorvanCore_ROOT is the folder with its
# CMake package, or with its headers and its library or framework.
find_package(YorvanCore CONFIG QUIET)
if(TARGET YorvanCore::YorvanCore)
  set(YorvanCore_FOUND TRUE)
else()
  find_path(YorvanCore_INCLUDE_DIR YorvanCore/YString.h)
  find_library(YorvanCore_LIBRARY NAMES YorvanCore libYorvanCore.so.2 libYorvanCore.2.dylib)
  mark_as_advanced(YorvanCore_INCLUDE_DIR YorvanCore_LIBRARY)

  include(FindPackageHandleStandardArgs)
  find_package_handle_standard_args(YorvanCore REQUIRED_VARS YorvanCore_LIBRARY YorvanCore_INCLUDE_DIR)
  if(YorvanCore_FOUND)
    add_library(YorvanCore::YorvanCore UNKNOWN IMPORTED)
    set_target_properties(YorvanCore::YorvanCore PROPERTIES
      IMPORTED_LOCATION ${YorvanCore_LIBRARY}
      INTERFACE_INCLUDE_DIRECTORIES ${YorvanCore_INCLUDE_DIR})
  endif()
endif()
