# The JUnit suite on the release library over the simulated bus, in a JVM that checks its native calls; and that
# library, the documents and the packages themselves.
if(CMAKE_HOST_APPLE)
  set(LIBRARY libUSBAccessLink_3_47.dylib)
  set(JARS ${ROOT}/build/jars)
  set(LIBRARY_PATH DYLD_LIBRARY_PATH)
  set(NOT_HERE linux preload) # tags
else()
  set(LIBRARY libUSBAccessLink_3_47.so)
  set(JARS /usr/share/java)
  set(LIBRARY_PATH LD_LIBRARY_PATH)
  set(NOT_HERE "")
endif()
set(SCENARIO ${ROOT}/tests/java/scenario.json)
set(HID_SUITES .*Hid.*Test)
# A heap that neither grows nor shrinks, and one compiler: what the process gains is then what the tests have left.
set(STEADY_JVM -Xms128m -Xmx128m -XX:+AlwaysPreTouch -XX:TieredStopAtLevel=1)

# junit(RESULT [JAVA FILE] [LIBRARY FILE] [TESTS JAR] [WITHOUT TAG...] [JVM OPTION...] [LAUNCHER OPTION...])
# The command that runs the suite without the tests that have one of these tags. The jar of the tests comes first, so that
# picocli is the one beside it: a JVM archives no class of the one that the other jar names.
function(junit result)
  cmake_parse_arguments(PARSE_ARGV 1 suite "" "JAVA;LIBRARY;TESTS" "WITHOUT;JVM;LAUNCHER")
  set(java java)
  set(library ${RELEASE}/${LIBRARY})
  set(tests ${RELEASE}/tests/java/orvex-java-tests.jar)
  foreach(given java library tests)
    string(TOUPPER ${given} name)
    if(suite_${name})
      set(${given} ${suite_${name}})
    endif()
  endforeach()
  set(without ${suite_WITHOUT} ${NOT_HERE})
  list(TRANSFORM without PREPEND --exclude-tag=)
  set(${result} ${java} -Xcheck:jni ${STEADY_JVM} ${suite_JVM} -Dorvex.usb.library=${library}
    -cp ${tests}:${JARS}/junit-platform-console-standalone.jar org.junit.platform.console.ConsoleLauncher
    --scan-classpath=${tests} --reports-dir=FOLDER/reports
    --details=verbose # as it goes on, so that the log of a run that hangs tells where
    --disable-banner --disable-ansi-colors ${without} ${suite_LAUNCHER} PARENT_SCOPE)
endfunction()

# add_simulated_run(BUILD PRESET [NEEDS FIXTURE...] COMMAND WORD...): a suite over the drop-in libraries of a build.
function(add_simulated_run build preset)
  cmake_parse_arguments(PARSE_ARGV 2 run "" "" "NEEDS;COMMAND")
  set(bus ${LIBRARY_PATH}=${ROOT}/build/${preset}/sim/lib SIMBUS_SCENARIO=${SCENARIO})
  add_run(java ${build} NEEDS "java tests" ${run_NEEDS} COMMAND ${run_COMMAND}
    PROPERTIES ENVIRONMENT "${bus}" DEPENDS "${UNIT_RUNS}")
endfunction()

if(CMAKE_HOST_APPLE)
  add_preset_build("java tests" release "orvex_java_tests" release)
else()
  add_preset_build("java tests" release "orvex_java_tests hot_paths sim_libusb list_capture" release)
endif()

set(choice "")
if(SUITES)
  set(choice --include-classname=.*\(${SUITES}\).*)
elseif(CMAKE_HOST_APPLE) # its own HID devices are not simulated
  set(choice --exclude-classname=${HID_SUITES})
endif()
if(SUITES OR CMAKE_HOST_APPLE)
  junit(suite WITHOUT kernel newest LAUNCHER ${choice})
  add_simulated_run(release release COMMAND ${suite})
else()
  # A copy of the jar counts what the tests reach. What that disturbs runs with the jar itself.
  set(only_shipped shipped preload unloading)
  add_build("counted jars" release "python3 -B tests/coverage/coverage.py count ${RELEASE}" "java tests")
  junit(suite TESTS ${RELEASE}/counted/tests/java/orvex-java-tests.jar WITHOUT kernel newest ${only_shipped})
  add_simulated_run(release release NEEDS "counted jars" COMMAND ${suite})
  list(TRANSFORM only_shipped PREPEND --include-tag=)
  junit(suite LAUNCHER ${only_shipped})
  add_simulated_run("shipped jar" release COMMAND ${suite})
  add_run(java coverage NEEDS "counted jars"
    PROPERTIES DEPENDS "java: release" COMMAND ${PYTHON} tests/coverage/coverage.py java ${RELEASE})
endif()

# What is shipped exports the native methods and nothing else; its hot paths take as many instructions as ever, and
# Memcheck has nothing to say about them.
function(add_check name)
  add_run(java ${name} NEEDS "java tests" PROPERTIES DEPENDS "${UNIT_RUNS}" COMMAND --as ${name} ${ARGN})
endfunction()
add_check(exports ${PYTHON} tests/house/exports.py ${RELEASE}/${LIBRARY})
if(NOT CMAKE_HOST_APPLE)
  set(hot_paths ${RELEASE}/tests/instructions/hot_paths)
  add_check(instructions
    ${PYTHON} tests/instructions/instructions.py ${hot_paths} ${RELEASE}/${LIBRARY} ${RELEASE}/sim/lib)
  add_check(memcheck env LD_LIBRARY_PATH=${RELEASE}/sim/lib SIMBUS_SCENARIO=bench/scenario.json
    valgrind --quiet --error-exitcode=9 --leak-check=full --errors-for-leak-kinds=definite ${hot_paths})
endif()
if(SUITES)
  return()
endif()

# What depends on the HID interface, on the library with the macOS side. What unloads a library does so with the one
# in the jar, which is this system's.
if(CMAKE_HOST_APPLE)
  set(macos release)
  add_preset_build("macos library" release "USBAccessLink_macos sim_libusb" release)
else()
  set(macos macos)
endif()
junit(suite LIBRARY ${ROOT}/build/${macos}/macos/${LIBRARY} WITHOUT unloading
  LAUNCHER --include-classname=${HID_SUITES})
add_simulated_run("macOS side" ${macos} NEEDS "macos library" COMMAND ${suite})
if(CMAKE_HOST_APPLE)
  return() # its JVM cannot be made to load the sanitizer first; the documents and packages are for Linux
endif()

# The library as the address sanitizer watches it, in a JVM that has the sanitizer. That looks for what throws an
# exception when it starts: the runtime of C++ has to be there by then. The JVM takes signals for its own work, and
# forgets much when it ends. How the library is found has nothing for the sanitizer, and the jar holds the one without
# it; two libraries that take the place of operator new cannot be in one process; and where a library is unloaded, the
# JVM itself looks at the name that the system has just freed.
foreach(name libclang_rt.asan-${CMAKE_HOST_SYSTEM_PROCESSOR}.so libstdc++.so.6)
  execute_process(COMMAND clang++ -print-file-name=${name} OUTPUT_VARIABLE file OUTPUT_STRIP_TRAILING_WHITESPACE)
  list(APPEND preload ${file})
endforeach()
list(JOIN preload ":" preload)
junit(suite LIBRARY ${ROOT}/build/asan/${LIBRARY} WITHOUT kernel loading newest preload programs unloading
  JVM -XX:+UseSerialGC -Dorvex.test.growthKb=1000000)
add_simulated_run(asan asan NEEDS "asan library" COMMAND env LD_PRELOAD=${preload}
  ASAN_OPTIONS=halt_on_error=1:detect_leaks=0:handle_segv=0:verify_asan_link_order=0
  UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 ${suite})

# The newest JDK, where that warns of native code that nobody allowed.
set(newest_version 23)
file(GLOB launchers /usr/lib/jvm/*/bin/java)
foreach(launcher IN LISTS launchers)
  execute_process(COMMAND ${launcher} -version ERROR_VARIABLE said)
  if(said MATCHES "version \"([0-9]+)" AND CMAKE_MATCH_1 GREATER newest_version)
    set(newest_version ${CMAKE_MATCH_1})
    set(newest ${launcher})
  endif()
endforeach()
if(newest)
  junit(suite JAVA ${newest} JVM --enable-native-access=ALL-UNNAMED WITHOUT kernel preload)
  add_simulated_run("newest JDK" release COMMAND ${suite})
endif()

# Programs that know nothing of this project, on the drop-in libraries of the release build.
add_run(java "foreign programs" NEEDS release "java tests" PROPERTIES DEPENDS "${UNIT_RUNS}"
  COMMAND ctest --test-dir build/release -j2 -L foreign --no-tests=error --output-on-failure
    --output-junit FOLDER/reports/ctest.xml)

add_run(java documents NEEDS "java tests" PROPERTIES DEPENDS "${UNIT_RUNS}"
  COMMAND ${PYTHON} tests/house/documents.py ${ROOT} ${RELEASE})

# The example with a window, on a display that nobody sees.
if(NOT CMAKE_HOST_APPLE)
  add_run(java window NEEDS release PROPERTIES DEPENDS "${UNIT_RUNS}"
    COMMAND examples/tool-window/run ${RELEASE} --reports-dir=FOLDER/reports --disable-ansi-colors)
endif()

add_build(package release script/package release)
add_run(java package NEEDS package "java tests" PROPERTIES DEPENDS "${UNIT_RUNS}"
  COMMAND ${PYTHON} tests/packaging/unpacked.py ${ROOT}/build/package ${RELEASE})
