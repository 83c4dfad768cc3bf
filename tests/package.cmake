# An outside project against the installed package, found in either way.
foreach(method cmake pkg-config)
  add_test(NAME package.${method}
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/package_test.sh ${method} ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR}/examples)
  set_tests_properties(package.${method} PROPERTIES TIMEOUT 300)
endforeach()

# --- What is shipped: the release builds without instrumentation ------------------------------------------------------

if(NOT CMAKE_BUILD_TYPE STREQUAL "Release" OR KRENV_SANITIZE OR KRENV_COVERAGE OR NOT TARGET krfacilities OR NOT TARGET pmenv)
  return()
endif()

# krenv_check(NAME command...): a test that is a command.
function(krenv_check name)
  add_test(NAME ${name} COMMAND ${ARGN} WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
  set_tests_properties(${name} PROPERTIES TIMEOUT 300)
endfunction()

krenv_check(hardening.self ${CMAKE_CURRENT_SOURCE_DIR}/hardening_test.sh --self ${CMAKE_CXX_COMPILER})
foreach(target krenv krfacilities pmenv)
  krenv_check(hardening.${target} ${CMAKE_CURRENT_SOURCE_DIR}/hardening_test.sh $<TARGET_FILE:${target}>)
endforeach()

foreach(what make lintian install archive)
  krenv_check(debian.${what}
    ${CMAKE_CURRENT_SOURCE_DIR}/debian_test.sh ${what} ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR}/examples)
endforeach()
set_tests_properties(debian.install PROPERTIES SKIP_RETURN_CODE 77)
set_tests_properties(debian.make PROPERTIES FIXTURES_SETUP debian_packages)
set_tests_properties(debian.lintian debian.install debian.archive PROPERTIES FIXTURES_REQUIRED debian_packages)

# --- What needs to be looked at once: with the 32-bit build -----------------------------------------------------------

if(NOT CMAKE_SIZEOF_VOID_P EQUAL 4)
  return()
endif()

foreach(library krenv:src krfacilities:facilities)
  string(REGEX MATCH "(.*):(.*)" library ${library})
  set(written ${PROJECT_SOURCE_DIR}/${CMAKE_MATCH_2}/${CMAKE_MATCH_1})
  krenv_check(exports.${CMAKE_MATCH_1} ${CMAKE_CURRENT_SOURCE_DIR}/exports_test.sh
    $<TARGET_FILE:${CMAKE_MATCH_1}> ${written}.exports)
  krenv_check(abi.${CMAKE_MATCH_1} ${CMAKE_CURRENT_SOURCE_DIR}/abi_test.sh $<TARGET_FILE:${CMAKE_MATCH_1}> ${written}.abi)
endforeach()

file(GLOB scripts CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/*/*.sh)
krenv_check(shellcheck shellcheck dev .ci/run ${scripts})
krenv_check(docs.reference ${CMAKE_COMMAND} -E env KRENV_DOCS_DIR=${PROJECT_BINARY_DIR}/docs doxygen docs/Doxyfile)

# Each page, run by a reader with the installed package.
file(GLOB pages CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/*.md ${PROJECT_SOURCE_DIR}/docs/*.md)
foreach(page IN LISTS pages)
  get_filename_component(name ${page} NAME_WE)
  krenv_check(docs.${name} ${CMAKE_CURRENT_SOURCE_DIR}/docs_test.sh ${page} ${PROJECT_BINARY_DIR})
endforeach()
krenv_check(docs.self ${CMAKE_CURRENT_SOURCE_DIR}/docs_test.sh --self ${PROJECT_BINARY_DIR})
