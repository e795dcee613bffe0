# The published files: the jar, which contains the native library, the jars with sources and documentation, and the pom.
set(pack ${Python3_EXECUTABLE} -B ${PROJECT_SOURCE_DIR}/script/lib/jars.py pack)
set(packer ${PROJECT_SOURCE_DIR}/script/lib/jars.py)
set(jar_base ${CMAKE_BINARY_DIR}/orvex-usb-access)

configure_file(pom.xml.in ${jar_base}.pom @ONLY)

# The platforms of this build's library, by the names that the loader uses.
if(ORVEX_MACOS)
  set(processors ${CMAKE_OSX_ARCHITECTURES})
  set(system macos)
else()
  string(TOLOWER ${CMAKE_SYSTEM_NAME} system)
endif()
if(NOT processors)
  set(processors ${CMAKE_SYSTEM_PROCESSOR})
endif()
list(TRANSFORM processors REPLACE "^arm64$" aarch64)

# Without debug information. On a Mac the library has none, and a change would break its signature.
set(shipped ${CMAKE_CURRENT_BINARY_DIR}/$<TARGET_FILE_NAME:USBAccessLink>)
if(ORVEX_MACOS)
  set(ship ${CMAKE_COMMAND} -E copy $<TARGET_FILE:USBAccessLink> ${shipped})
else()
  set(ship ${CMAKE_STRIP} --strip-unneeded -o ${shipped} $<TARGET_FILE:USBAccessLink>)
endif()
set(ORVEX_SHIPPED_LIBRARY ${shipped} PARENT_SCOPE)
set(natives)
foreach(processor ${processors})
  list(APPEND natives META-INF/native/${system}-${processor}/$<TARGET_FILE_NAME:USBAccessLink>=${shipped})
endforeach()

include(bundled.cmake)
set(ORVEX_BUNDLED ${bundled} PARENT_SCOPE)

# The bill of materials. Each platform has its own file, so that jars can be merged.
configure_file(identity.json.in identity.json @ONLY)
list(JOIN processors "-" bill_name)
set(bill_name orvex-usb-access-${system}-${bill_name}.cdx.json)
set(bill ${CMAKE_CURRENT_BINARY_DIR}/${bill_name})
if(bundle)
  set(bundled_parts ${folder})
else()
  set(bundled_parts)
endif()
add_custom_command(
  OUTPUT ${bill}
  COMMAND ${Python3_EXECUTABLE} -B ${CMAKE_CURRENT_SOURCE_DIR}/bill.py ${bill} ${CMAKE_CURRENT_BINARY_DIR}/identity.json
    pkg:maven/com.talvane.orvex/orvex-usb-access@${PROJECT_VERSION}
    "optional:pkg:maven/info.picocli/picocli@${ORVEX_PICOCLI_VERSION}=Apache-2.0" ${bundled_parts}
  DEPENDS bill.py ${CMAKE_CURRENT_BINARY_DIR}/identity.json ${bundle}
  VERBATIM)
set(ORVEX_BILL ${bill} PARENT_SCOPE)

file(GLOB native_image CONFIGURE_DEPENDS native-image/*.json)
add_custom_command(
  OUTPUT ${jar_base}.jar
  COMMAND ${ship}
  COMMAND ${pack} ${jar_base}.jar ${ORVEX_CLASSES_JAR} ${natives}
    META-INF/maven/com.talvane.orvex/orvex-usb-access/pom.xml=${jar_base}.pom
    META-INF/NOTICE=${PROJECT_SOURCE_DIR}/NOTICE
    META-INF/sbom/${bill_name}=${bill}
    META-INF/native-image/com.talvane.orvex/orvex-usb-access=${CMAKE_CURRENT_SOURCE_DIR}/native-image
  DEPENDS orvex_classes ${ORVEX_CLASSES_JAR} USBAccessLink ${jar_base}.pom ${PROJECT_SOURCE_DIR}/NOTICE ${packer}
    ${bundle} ${bill} ${native_image}
  VERBATIM)
add_custom_target(orvex_jar ALL DEPENDS ${jar_base}.jar)

list(TRANSFORM ORVEX_API_SOURCES PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/ OUTPUT_VARIABLE api_sources)
list(TRANSFORM ORVEX_SYSTEM_SOURCES PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/ OUTPUT_VARIABLE system_sources)
list(TRANSFORM ORVEX_TOOL_SOURCES PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/ OUTPUT_VARIABLE tool_sources)
add_custom_command(
  OUTPUT ${jar_base}-sources.jar
  COMMAND ${pack} ${jar_base}-sources.jar =${CMAKE_CURRENT_SOURCE_DIR}/src
  DEPENDS ${api_sources} ${system_sources} ${tool_sources} ${CMAKE_CURRENT_SOURCE_DIR}/src/module-info.java ${packer}
  VERBATIM)
add_custom_target(orvex_sources_jar DEPENDS ${jar_base}-sources.jar)

# The documentation of the class; its warnings are errors, so it is built in every test run.
set(javadoc ${CMAKE_CURRENT_BINARY_DIR}/javadoc)
add_custom_command(
  OUTPUT ${jar_base}-javadoc.jar
  COMMAND ${CMAKE_COMMAND} -E rm -rf ${javadoc}
  COMMAND ${Java_JAVADOC_EXECUTABLE} -quiet -notimestamp -Xdoclint:all -Werror --release 17 -encoding UTF-8
    -cp ${ORVEX_CLASSES_JAR} -d ${javadoc} ${api_sources}
  COMMAND ${pack} ${jar_base}-javadoc.jar =${javadoc}
  DEPENDS ${api_sources} orvex_classes ${ORVEX_CLASSES_JAR} ${packer}
  VERBATIM)
add_custom_target(orvex_javadoc_jar DEPENDS ${jar_base}-javadoc.jar)

add_custom_target(orvex_jars)
add_dependencies(orvex_jars orvex_pages orvex_jar orvex_sources_jar orvex_javadoc_jar)
add_dependencies(orvex_shipped orvex_jars)

# An archive of the classes that the tool loads makes it start faster. It is valid for this jar at this path and this
# Java only; others ignore it. If it cannot be made, the file is empty.
if(ORVEX_LINUX AND NOT CMAKE_CROSSCOMPILING AND NOT ORVEX_SANITIZE)
  set(archive ${CMAKE_BINARY_DIR}/orvex-usb.jsa)
  add_custom_command(
    OUTPUT ${archive}
    COMMAND ${CMAKE_COMMAND} -E rm -f ${archive}
    COMMAND ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${CMAKE_BINARY_DIR}/sim/lib
      SIMBUS_SCENARIO=${PROJECT_SOURCE_DIR}/sim/scenarios/demo.json
      ${Java_JAVA_EXECUTABLE} -XX:ArchiveClassesAtExit=${archive} -Xlog:disable -XX:TieredStopAtLevel=1
      -XX:+UseSerialGC -Djava.library.path=${CMAKE_BINARY_DIR} -jar ${jar_base}.jar list --all
      > ${CMAKE_CURRENT_BINARY_DIR}/archive.log 2>&1 || ${CMAKE_COMMAND} -E touch ${archive}
    DEPENDS ${jar_base}.jar USBAccessLink simbus sim_libusb sim_hidapi
    COMMENT "Archiving the tool's classes")
  add_custom_target(orvex_archive ALL DEPENDS ${archive})
  add_dependencies(orvex_archive orvex_jar)
  add_dependencies(orvex_jars orvex_archive)
endif()
