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

# add_program_test(name file [VARIABLE=VALUE...])
#
# Runs a file of pytest in such a namespace, with the places of the built programs in its environment. The cases mostly wait
# for programs, so many run at once.
function(add_program_test name file)
  add_test(NAME ${name} COMMAND ${SYSTEM_TEST_WRAPPER} env PYTHONDONTWRITEBYTECODE=1
    PYTHONPATH=${PROJECT_SOURCE_DIR}/tests/support SOURCE_FOLDER=${PROJECT_SOURCE_DIR}
    HBADISC=$<TARGET_FILE:hbadisc> AGENT=$<TARGET_FILE:hbadisc-agent> ${ARGN}
    pytest -q -n 8 -p no:cacheprovider -p programs ${CMAKE_CURRENT_SOURCE_DIR}/${file})
endfunction()
