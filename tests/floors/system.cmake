# The same suite, and what needs a kernel, in virtual machines where a stock kernel has the simulated devices on its
# bus. Two machines go on at a time, in two places: more emulated ones are in each other's way. They begin before the
# Java floor's runs, which are done sooner, and the suites begin first.
set(DEMO ${ROOT}/sim/scenarios/demo.json)
math(EXPR MACHINE_DEADLINE "${DEADLINE} - 10") # so that the machine ends, and says why, before CTest ends the run

# in_machine(RESULT SCENARIO PROCESSORS): the beginning of a command that is to run with these devices.
function(in_machine result scenario processors)
  set(${result} tests/system/vm --timeout ${MACHINE_DEADLINE} --processors ${processors} --share FOLDER
    --env SIMBUS_USBIP=${RELEASE}/sim/usbip/simbus-usbip -- tests/system/with-kernel-bus ${scenario} -- PARENT_SCOPE)
endfunction()

# add_machine_run(BUILD PLACE FIXTURES WORD...)
function(add_machine_run build place fixtures)
  add_run(system ${build} NEEDS ${fixtures} COMMAND ${ARGN}
    PROPERTIES RESOURCE_LOCK "machine ${place}" DEPENDS "${UNIT_RUNS}" COST 2000)
endfunction()

# An emulated processor is slow to load classes: they come from an archive, which a few tests on the simulated bus make.
# With the default collector a JVM can crash under emulation. A JVM refuses the archive when a jar is newer, so it is
# made after the house checks, which make the jars again.
# A JVM that compiles only what is called very often is faster there. The suite with the endurance tests does without,
# because the JVM then still grows when they look at its memory.
set(RARELY_COMPILED -XX:CompileThresholdScaling=10)
set(EMULATED_JVM -XX:+UseSerialGC -Dorvex.test.childOption=${RARELY_COMPILED})
set(archive ${RELEASE}/tests/java/classes.jsa)
junit(suite JVM ${EMULATED_JVM} -XX:ArchiveClassesAtExit=${archive} WITHOUT kernel
  LAUNCHER --include-classname=.*\(BulkTransfer|DoctorTool|HidReports|UsbTransfer\)Test)
list(TRANSFORM suite REPLACE ".+" "'\\0'")
list(JOIN suite " " suite)
string(REPLACE FOLDER ${RESULTS}/build/class-archive suite "${suite}")
add_build("class archive" release "${suite}" "java tests")
set_tests_properties("build: class archive" PROPERTIES DEPENDS "unit: house"
  ENVIRONMENT "LD_LIBRARY_PATH=${RELEASE}/sim/lib;SIMBUS_SCENARIO=${SCENARIO}")

# add_suite_run(BUILD PLACE CHOICE PROCESSORS [JVM_OPTION]): what needs the bus in memory stays out, what needs a kernel
# is in. The parts of the command-line tool are tested without a bus.
function(add_suite_run build place choice processors)
  junit(suite JVM ${EMULATED_JVM} ${ARGN} -XX:SharedArchiveFile=${archive} WITHOUT memory loading newest preload
    LAUNCHER ${choice} --exclude-package=com.talvane.orvex.comm.tool)
  in_machine(machine ${SCENARIO} ${processors})
  add_machine_run(${build} ${place} "class archive" ${machine} ${suite})
  set_tests_properties("system: ${build}" PROPERTIES COST 3000)
endfunction()

if(SYSTEM_SUITES)
  add_suite_run("java on kernel" 1 --include-classname=.*\(${SYSTEM_SUITES}\).* 2)
  return()
endif()

# Each of two machines takes about half of the time. More emulated processors than there are real ones take longer.
set(half ".*([.]access[.]|Hid|Endurance).*Test")
add_suite_run("java on kernel" 1 --exclude-classname=${half} 1 ${RARELY_COMPILED})
add_suite_run("HID and stress" 2 --include-classname=${half} 1)

add_preset_build("system programs" release "kernel_bus_probe roundtrips pulls" release)
in_machine(on_demo ${DEMO} 2)
# The machine and the kernel's view of the devices, without the library.
add_machine_run("kernel bus" 2 "system programs" tests/system/selftest ${RELEASE})
# Devices that are lent over the network, through the system's own usbip.
add_machine_run(remote 1 release
  tests/system/vm --timeout ${MACHINE_DEADLINE} -- tests/system/remote-devices ${RELEASE})
# By one thread and by four; their times go to the log.
add_machine_run("round trips" 2 "system programs" --as "round trips bring every byte back"
  ${on_demo} sh -c "${RELEASE}/tests/system/roundtrips 500 1 && ${RELEASE}/tests/system/roundtrips 2000 4")
# Programs whose traffic the kernel captures, and which get the same answers from a replay.
add_machine_run("kernel captures" 2 release --as "captures of the kernel are replayed"
  env RECORD_SIM=${RELEASE}/sim RECORD_TOOLS=${RELEASE}/tests/record tests/record/kernel_captures ${MACHINE_DEADLINE})
# Devices that are pulled before every call into the kernel that the library makes for them.
add_machine_run(pulls 2 "system programs" ${on_demo} ${RELEASE}/tests/system/pulls)
# The packages, where udev and the kernel decide who may use a device. Their programs run one after the other,
# which is faster on one emulated processor than on two.
in_machine(on_demo ${DEMO} 1)
add_machine_run("package installed" 1 package ${on_demo} ${PYTHON} tests/packaging/installed.py)
