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
