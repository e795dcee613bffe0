# arm64 Linux on another processor (script/arm64): what is shipped, and the parts that the labels name. Where programs
# are emulated, they run among the files of Debian's arm64 packages.
set(ARM64 ${ROOT}/build/arm64)
set(FULL ${ROOT}/build/arm64-root/full)
set(JAR ${ARM64}/orvex-usb-access-linux.jar)
set(foreign ${FULL}/usr/lib/aarch64-linux-gnu)
set(parts arm64-java arm64-demo arm64-unit arm64-package)

# add_arm64_run(BUILD LABELS FIXTURES WORD...)
function(add_arm64_run build labels fixtures)
  add_run(arm64 ${build} NEEDS ${fixtures} COMMAND ${ARGN})
  set_tests_properties("arm64: ${build}" PROPERTIES LABELS "${labels}")
endfunction()

# in_root(RESULT ROOT VARIABLE=TEXT...): the beginning of a command that is to run among the files of a root.
function(in_root result root)
  list(TRANSFORM ARGN PREPEND "--env;" OUTPUT_VARIABLE variables)
  set(${result} tests/arm64/in-root ${root} --bind /usr/share/java ${variables} -- PARENT_SCOPE)
endfunction()

set(shipped "USBAccessLink orvex_jars sim_libusb sim_hidapi sim_hidapi_libusb simbus_command simbus-usbip")
string(APPEND shipped " simbus_record simbus_replay orvex_java_tests")
add_build("arm64 release" release script/build)
add_preset_build(arm64 arm64 ${shipped} "arm64 release")
add_arm64_run(exports "${parts}" arm64 --as exports ${PYTHON} tests/house/exports.py ${ARM64}/${LIBRARY}
  ${foreign}/libusb-1.0.so.0 ${foreign}/libhidapi-hidraw.so.0)
add_arm64_run("one jar" "${parts}" arm64 --as "one jar for both processors"
  script/merge-natives ${JAR} ${RELEASE}/orvex-usb-access.jar ${ARM64}/orvex-usb-access.jar)
set_tests_properties("arm64: one jar" PROPERTIES FIXTURES_SETUP "one jar")

# Without what emulation does not do.
in_root(machine ${FULL} LD_LIBRARY_PATH=${ARM64}/sim/lib SIMBUS_SCENARIO=${SCENARIO} SIMBUS_SOCKET=/tmp/simbus)
junit(suite LIBRARY ${ARM64}/${LIBRARY} TESTS ${ARM64}/tests/java/orvex-java-tests.jar
  JVM ${EMULATED_JVM} WITHOUT kernel newest programs unemulated)
add_arm64_run(java arm64-java arm64 ${machine} ${suite})

# The main job on an arm64 kernel, and there the jar on a system without libusb and hidapi.
add_arm64_run(kernel arm64-demo "one jar" tests/system/vm --arch arm64 --root ${FULL} --share ${ROOT}
  --timeout ${MACHINE_DEADLINE} --env SIMBUS_USBIP=${ARM64}/sim/usbip/simbus-usbip -- tests/system/with-kernel-bus ${DEMO} --
  ${PYTHON} tests/arm64/on_kernel.py ${ARM64} ${ROOT}/build/arm64-root/jre ${JAR})

# The others have all processors for themselves. CTest is this machine's, and starts each C++ test with the emulator;
# what they start themselves, the kernel does.
add_preset_build("arm64 tests" arm64 "unit_tests sim_tests usbip_tests" arm64)
in_root(machine / QEMU_LD_PREFIX=${FULL})
add_arm64_run(unit arm64-unit "arm64 tests" ${machine} ctest --test-dir ${ARM64} -j${JOBS} --no-tests=error
  --output-on-failure --timeout 120 --output-junit FOLDER/reports/ctest.xml -LE house -E "^(macos|fuzz)[.]|NOT_BUILT")
add_build("arm64 package" arm64 "script/package --arm64" arm64)
add_arm64_run(package arm64-package "arm64 package"
  ${PYTHON} tests/packaging/unpacked.py ${ROOT}/build/package-arm64 ${ARM64} arm64)
set_tests_properties("arm64: unit" "arm64: package" PROPERTIES RUN_SERIAL ON TIMEOUT 2400)
