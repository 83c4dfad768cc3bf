# The build options and the compiler flags that follow from them.
set(KRENV_FACILITIES bundled CACHE STRING
    "The support facilities that libkrenv is built on: `bundled`, or an imported target that offers the same headers")
option(KRENV_BUILD_TOOLS "Build pmenv" ${PROJECT_IS_TOP_LEVEL})
# Debian's libcurl for i386 takes forty packages along, which a 32-bit pmenv does not need to start a 64-bit program.
if(CMAKE_SIZEOF_VOID_P EQUAL 8)
  set(krenv_fleet_default ${PROJECT_IS_TOP_LEVEL})
else()
  set(krenv_fleet_default OFF)
endif()
option(KRENV_BUILD_FLEET "Build pmenv-fleet, which takes libcurl" ${krenv_fleet_default})
option(KRENV_BUILD_TESTS "Build the tests" ${PROJECT_IS_TOP_LEVEL})
set(KRENV_TESTS all CACHE STRING
    "`all` tests; those that may have `races`; the `others`; the `whole`, without those of pmenv's parts; or the `untimed`")
option(KRENV_BUILD_BENCH "Build the comparison benchmarks" OFF)
option(KRENV_BUILD_FUZZ "Build the fuzz targets; takes clang" OFF)
option(KRENV_WERROR "Treat warnings as errors" OFF)
option(KRENV_COVERAGE "Instrument for coverage" OFF)
option(KRENV_JOINED_SOURCES "Compile several sources of pmenv and its tests at once, which takes half the time" OFF)
set(KRENV_SANITIZE "" CACHE STRING "Sanitizers to build with, as in -fsanitize=")

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")

# Whether a target is a test.
set(is_test $<BOOL:$<TARGET_PROPERTY:KRENV_TEST>>)

add_library(krenv_options INTERFACE)
# Support files over 2 GiB, 64-bit inodes and dates after 2038, also on 32 bits.
target_compile_definitions(krenv_options INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
target_compile_options(krenv_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow $<$<BOOL:${KRENV_WERROR}>:-Werror> -fstack-protector-strong)
target_link_options(krenv_options INTERFACE -Wl,-z,relro,-z,now -Wl,--as-needed)
# The standard library checks how it is used, in every build but those that are shipped and measured.
target_compile_definitions(krenv_options INTERFACE $<$<CONFIG:Debug>:_GLIBCXX_ASSERTIONS>)
# GCC spends a tenth of its time tidying up memory that joined sources soon fill again. Not to do so takes 250 MB.
if(KRENV_JOINED_SOURCES AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(krenv_options INTERFACE "SHELL:--param ggc-min-heapsize=524288")
endif()

if(KRENV_SANITIZE)
  target_compile_options(krenv_options INTERFACE -fsanitize=${KRENV_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  # Tests take away the descriptors that looking at an object's type needs, and replace functions of the C library by ones
  # that throw, as clang thinks they cannot.
  target_compile_options(krenv_options INTERFACE -fno-sanitize=vptr -fno-builtin)
  target_link_options(krenv_options INTERFACE -fsanitize=${KRENV_SANITIZE})
  target_compile_definitions(krenv_options INTERFACE $<${is_test}:KRENV_SANITIZED>)
  # The tests themselves, neither for undefined behaviour nor optimised: they would take half as long again to compile.
  target_compile_options(krenv_options INTERFACE $<${is_test}:-fno-sanitize=undefined> $<${is_test}:-O0>)
  # Tests of values, which hold no memory of what they test, are not instrumented at all; what they test is.
  target_compile_options(krenv_options INTERFACE $<$<STREQUAL:$<TARGET_PROPERTY:KRENV_TEST>,OF_VALUES>:-fno-sanitize=all>)
elseif(CMAKE_BUILD_TYPE STREQUAL "Release")
  # The tests are not optimised, because that takes longer than it saves, and cannot be fortified then.
  target_compile_options(krenv_options INTERFACE
    -U_FORTIFY_SOURCE $<IF:${is_test},-O0,-D_FORTIFY_SOURCE=3> -fstack-clash-protection)
  # Directories of this machine do not get into what is shipped. (A compiler cache may make the sources' directory relative.)
  cmake_path(RELATIVE_PATH PROJECT_SOURCE_DIR BASE_DIRECTORY ${PROJECT_BINARY_DIR} OUTPUT_VARIABLE from_build)
  target_compile_options(krenv_options INTERFACE -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.
    -ffile-prefix-map=${from_build}=. -ffile-prefix-map=${PROJECT_BINARY_DIR}=build)
endif()
if(KRENV_BUILD_FUZZ)
  target_compile_options(krenv_options INTERFACE $<$<NOT:${is_test}>:-fsanitize=fuzzer-no-link>)
endif()
if(KRENV_COVERAGE)
  # Threads update the counters atomically, so that no count is lost.
  target_compile_options(krenv_options INTERFACE --coverage -fprofile-update=atomic)
  # Link the function that stores the counts of a child process that ends without cleaning up.
  target_link_options(krenv_options INTERFACE --coverage -Wl,-u,__gcov_dump)
endif()

# Adds debugging information to the release build. The names and layouts of the interface are read from it (`./dev
# abi`). It changes no instruction and is stripped from the packages.
function(krenv_describe_interface)
  foreach(target IN LISTS ARGN)
    target_compile_options(${target} PRIVATE $<$<CONFIG:Release>:-g>)
  endforeach()
endfunction()

# Makes a shared library export the symbols that its export macros name, and none of the standard library's templates.
# Builds with sanitizers still export the templates, because those must be the same in all parts of a program.
function(krenv_hide_std library)
  if(NOT KRENV_SANITIZE)
    set(map ${PROJECT_SOURCE_DIR}/cmake/hide-std.map)
    target_link_options(${library} PRIVATE -Wl,--version-script=${map})
    set_target_properties(${library} PROPERTIES LINK_DEPENDS ${map})
  endif()
endfunction()
