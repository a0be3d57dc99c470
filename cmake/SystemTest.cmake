# add_system_test(target)
#
# Makes every GoogleTest case of `target` a test of its own that runs in a private mount namespace, so that cases which
# write the fixed paths under /etc touch neither the machine nor each other, and run in parallel.
set(SYSTEM_TEST_WRAPPER ${CMAKE_CURRENT_LIST_DIR}/../tests/system/in_namespace)

function(add_system_test target)
  # CMake's word for "run it through this", also when it is the same machine.
  set_property(TARGET ${target} PROPERTY CROSSCOMPILING_EMULATOR ${SYSTEM_TEST_WRAPPER})
  gtest_discover_tests(${target} NO_PRETTY_VALUES DISCOVERY_TIMEOUT 60)
endfunction()
