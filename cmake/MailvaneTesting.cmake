# mv_add_test(NAME <name> SOURCES <files...> LIBS <libs...> [GUI])
# One GoogleTest executable. Tests are discovered when ctest runs (not at
# build time), so a test binary never starts during the build.
function(mv_add_test)
  cmake_parse_arguments(T "GUI" "NAME" "SOURCES;LIBS" ${ARGN})
  add_executable(${T_NAME} ${T_SOURCES})
  if(T_GUI)
    target_link_libraries(${T_NAME} PRIVATE mv_test_main_gui)
  else()
    target_link_libraries(${T_NAME} PRIVATE mv_test_main)
  endif()
  target_link_libraries(${T_NAME} PRIVATE ${T_LIBS} GTest::gtest GTest::gmock)
  target_compile_definitions(${T_NAME} PRIVATE
    MV_SOURCE_DIR="${PROJECT_SOURCE_DIR}" MV_BINARY_DIR="${PROJECT_BINARY_DIR}")
  gtest_discover_tests(${T_NAME} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    PROPERTIES ENVIRONMENT "QT_QPA_PLATFORM=offscreen")
endfunction()
