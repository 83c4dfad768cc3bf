# `./dev package` makes of the installed files an archive that unpacks anywhere (packaging/make.sh), and here a Debian
# package for each component. packaging/debian/ adds to the packages what only Debian needs.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  set(krenv_architecture i386)
else()
  set(krenv_architecture amd64)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME krenv)
set(CPACK_PACKAGE_FILE_NAME krenv-${PROJECT_VERSION}-linux-${krenv_architecture})
set(CPACK_PACKAGE_CONTACT "Pressmark developers <krenv@example.net>")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL runtime development tool exporter)
if(TARGET pmenv-fleet)
  list(APPEND CPACK_COMPONENTS_ALL fleet)
endif()

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${krenv_architecture})
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(krenv_debian_version ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})
# This works for i386 too, because `./dev` installs the libraries of that architecture as packages.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src ${PROJECT_BINARY_DIR}/facilities)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")   # else it would become the first line of all three descriptions
set(krenv_library_text
"Settings from pressmark.ini with references that are expanded, paths and
file search, facts about the host, and the memory and processor load of the
machine and of the load engines on it.")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libkrenv1)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "environment support library of Pressmark\n${krenv_library_text}")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkrenv-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libkrenv1 (= ${krenv_debian_version})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "environment support library of Pressmark (development files)
${krenv_library_text}\n.\nThis package has the headers, what CMake and pkg-config need to find the\nlibrary, its guides and examples.")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME pmenv)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "libkrenv1 (>= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOL_PACKAGE_SUGGESTS pmenv-fleet)
set(CPACK_COMPONENT_TOOL_DESCRIPTION "settings, paths and figures of a Pressmark host
Shows on the command line what the environment support library provides\nto the programs of a Pressmark host: settings and where they come from,\nwhere files are found, and what the machine and its load engines use, also\nlive.")

set(CPACK_DEBIAN_EXPORTER_PACKAGE_NAME pmenv-exporter)
set(CPACK_DEBIAN_EXPORTER_PACKAGE_SECTION net)
set(CPACK_DEBIAN_EXPORTER_PACKAGE_DEPENDS "libkrenv1 (>= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_EXPORTER_DESCRIPTION "figures of Pressmark's load engines for a metrics collector
Watches the load engines of a host and serves over HTTP whether they could\nsend what was due, with rules and a dashboard for the collector.")

set(CPACK_DEBIAN_FLEET_PACKAGE_NAME pmenv-fleet)
set(CPACK_DEBIAN_FLEET_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_FLEET_PACKAGE_DEPENDS "libkrenv1 (>= ${PROJECT_VERSION}), libcurl4 (>= 7.87)")   # has all options that are set
set(CPACK_COMPONENT_FLEET_DESCRIPTION "verdict on all load generators of a Pressmark run
Asks a Prometheus server which load generators held a run back, and why, so\nthat it is known which percentiles of its results can be believed. The\ncommand 'pmenv fleet' starts this program, also that of another architecture.")

configure_file(packaging/debian/changelog.in ${PROJECT_BINARY_DIR}/debian-changelog @ONLY)
set(CPACK_KRENV_DEBIAN_DIR ${PROJECT_SOURCE_DIR}/packaging/debian)
set(CPACK_KRENV_BUILD_DIR ${PROJECT_BINARY_DIR})
set(CPACK_KRENV_DEBIAN_CHANGELOG ${PROJECT_BINARY_DIR}/debian-changelog)
set(CPACK_PRE_BUILD_SCRIPTS ${CPACK_KRENV_DEBIAN_DIR}/finish.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${CPACK_KRENV_DEBIAN_DIR}/control.cmake)
include(CPack)
