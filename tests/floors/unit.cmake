# The C++ tests over the simulated bus, and the checks of the house. Compilers, lint and sanitizers keep the processors
# busy, so two of these go on at a time, and the other floors begin when they are done.
if(NOT CMAKE_HOST_APPLE)
  set(leaks 1) # the check is not there on every macOS
else()
  set(leaks 0)
endif()
set(SANITIZERS
  ASAN_OPTIONS=halt_on_error=1:detect_leaks=${leaks}:detect_stack_use_after_return=1:strict_string_checks=1
  UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
  TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1)

# add_unit_run(BUILD PRESET FIXTURE CHOICE...): the tests of a preset that these options of CTest choose.
function(add_unit_run build preset fixture)
  add_run(unit ${build} NEEDS ${fixture} PROPERTIES ENVIRONMENT "${SANITIZERS}" PROCESSORS ${CORES}
    COMMAND ctest --test-dir build/${preset} -j${JOBS} --no-tests=error --output-on-failure
      --timeout ${ONE_UNIT_TEST_DEADLINE} --output-junit FOLDER/reports/ctest.xml ${ARGN})
endfunction()

add_preset_build("asan library" asan "USBAccessLink orvex_jar sim_libusb sim_hidapi")
add_preset_build(asan asan orvex_tests "asan library")
# This build counts what its tests reach of src, from 0 in each run.
add_preset_build(tsan tsan "orvex_unit_tests && find build/tsan -name '*.gcda' -delete")

add_unit_run(house release release -L house)
# It builds, too. What else is built in this folder is built before, so that no other run waits for the house.
set_tests_properties("unit: house" PROPERTIES RESOURCE_LOCK build/release
  DEPENDS "build: package;build: system programs")
add_unit_run(asan asan asan -LE house)
# The library's own tests only: they drive the simulated bus from as many threads as its own do.
add_unit_run(tsan tsan tsan -L unit)
if(NOT CMAKE_HOST_APPLE) # where the fakes that some of the tests need are not linked
  # Whatever a Mac builds is built and linked here, over the stand-ins for its system.
  add_preset_build("macos library" macos "USBAccessLink_macos sim_libusb")
  add_preset_build(macos macos "orvex_shipped orvex_tests" "macos library")
  add_unit_run("as on a Mac" macos macos -LE house)
  add_run(unit coverage NEEDS tsan PROPERTIES DEPENDS "unit: tsan" PROCESSORS ${CORES}
    COMMAND ${PYTHON} tests/coverage/coverage.py src build/tsan 100 95)
endif()
set(UNIT_RUNS "unit: house" "unit: asan" "unit: tsan" "unit: as on a Mac" "unit: coverage")
