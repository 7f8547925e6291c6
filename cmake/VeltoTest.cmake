# velto_add_test(NAME name SOURCES a_test.cpp ... [LIBS lib ...] [ENVIRONMENT VAR=value ...])
# One executable per subsystem; each test case runs as its own ctest entry
# (and process), listed when ctest runs rather than at build time.
function(velto_add_test)
  if(NOT VELTO_BUILD_TESTS)
    return()
  endif()
  cmake_parse_arguments(T "SERIAL" "NAME;TIMEOUT" "SOURCES;LIBS;ENVIRONMENT;LABELS" ${ARGN})
  add_executable(${T_NAME} ${T_SOURCES})
  target_link_libraries(${T_NAME} PRIVATE velto_test_harness ${T_LIBS})
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 120)
  endif()
  # Only properties with a value: an empty one would shift every pair after it.
  set(props TIMEOUT ${T_TIMEOUT} RUN_SERIAL ${T_SERIAL})
  if(T_ENVIRONMENT)
    list(APPEND props ENVIRONMENT "${T_ENVIRONMENT}")
  endif()
  if(T_LABELS)
    list(APPEND props LABELS "${T_LABELS}")
  endif()
  gtest_discover_tests(${T_NAME}
    DISCOVERY_MODE PRE_TEST
    PROPERTIES ${props})
endfunction()
