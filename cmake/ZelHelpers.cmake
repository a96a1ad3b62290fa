# Windows path of a file on the Linux side, as Wine's Z: drive shows it.
function(zel_wine_path out unix_path)
  string(REPLACE "/" "\\" win "${unix_path}")
  set(${out} "Z:${win}" PARENT_SCOPE)
endfunction()

# A GoogleTest executable run under Wine by CTest; the test name carries the architecture.
function(zel_add_gtest name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} zel_test_main gmock gtest)
  add_test(NAME ${ZEL_ARCH}.${name} COMMAND ${name})
  set_tests_properties(${ZEL_ARCH}.${name} PROPERTIES TIMEOUT 300)
endfunction()

# `number` with leading zeros up to `width` digits.
function(zel_pad_number out number width)
  set(text "${number}")
  string(LENGTH "${text}" length)
  while(length LESS width)
    string(PREPEND text "0")
    math(EXPR length "${length} + 1")
  endwhile()
  set(${out} "${text}" PARENT_SCOPE)
endfunction()

# A version resource (cmake/VersionInfo.rc.in) for `target`, an EXE or a DLL.
function(zel_version_resource target description)
  get_target_property(type ${target} TYPE)
  get_target_property(output_name ${target} OUTPUT_NAME)
  if(NOT output_name)
    set(output_name ${target})
  endif()
  if(type STREQUAL "EXECUTABLE")
    set(ZEL_RC_FILE_TYPE VFT_APP)
    set(ZEL_RC_FILE_NAME "${output_name}.exe")
  else()
    set(ZEL_RC_FILE_TYPE VFT_DLL)
    set(ZEL_RC_FILE_NAME "${output_name}.dll")
  endif()
  set(ZEL_RC_DESCRIPTION "${description}")
  set(ZEL_RC_INTERNAL_NAME "${output_name}")
  set(rc "${CMAKE_BINARY_DIR}/generated/${target}.version.rc")
  configure_file("${CMAKE_SOURCE_DIR}/cmake/VersionInfo.rc.in" "${rc}" @ONLY)
  set_source_files_properties("${rc}" PROPERTIES OBJECT_DEPENDS "${CMAKE_BINARY_DIR}/generated/ZelVersion.h")
  target_sources(${target} PRIVATE "${rc}")
endfunction()

# Source-file properties belong to a directory: each directory whose targets embed the type
# library's resource script calls this, so that its resources are compiled again whenever the
# type library changes (the resource compiler does not report the binary file it embeds).
function(zel_track_typelib_resource)
  set_source_files_properties("${ZEL_TYPELIB_RC}" PROPERTIES OBJECT_DEPENDS "${CMAKE_BINARY_DIR}/generated/ZelPmDb32.tlb")
endfunction()
