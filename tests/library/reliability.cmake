# Tests with faults injected into the C library, with hosts that behave badly, and with threads.

# The functions that support/Faults.cpp replaces, by their names on 32 bits.
set(fault_functions
  fopen64 fclose fgets __isoc99_fscanf open64 __fstat64_time64 read write perror close lseek64 __fcntl_time64
  __stat64_time64 opendir readdir64 closedir mkdir chdir getcwd realpath readlink tempnam getenv system popen pclose
  gethostname gethostbyname getifaddrs freeifaddrs inet_ntop uname sysinfo usleep __clock_gettime64 __gmtime64_r
  strerror_r getrandom pthread_key_create pthread_setspecific)

if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  krenv_test(faults_test OBJECTS FACILITIES WRAP ${fault_functions}
    SOURCES faults_test.cpp ${support}/Faults.cpp ${support}/FaultSweep.cpp)
  target_compile_definitions(faults_test PRIVATE
    KRENV_EXPORTS="${PROJECT_SOURCE_DIR}/src/krenv.exports"
    KRFACILITIES_EXPORTS="${PROJECT_SOURCE_DIR}/facilities/krfacilities.exports")
endif()

# Only for the shipped library, because its symbols are the ones listed.
if(CMAKE_SIZEOF_VOID_P EQUAL 4 AND CMAKE_BUILD_TYPE STREQUAL "Release" AND TARGET krfacilities)
  list(JOIN fault_functions "," injected)
  add_test(NAME faults.border COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/fault_border_test.sh
    ${CMAKE_CURRENT_SOURCE_DIR}/faultless.txt ${injected} $<TARGET_FILE:krenv> $<TARGET_FILE:krfacilities>)
endif()

# Hosts that behave badly.
add_executable(dlopen_host dlopen_host.cpp)
target_link_libraries(dlopen_host PRIVATE krenv_options ${CMAKE_DL_LIBS})
krenv_test(hosts_test NO_RACES OBJECTS WRAP fopen fopen64 popen system SOURCES hosts_test.cpp)
target_compile_definitions(hosts_test PRIVATE
  DLOPEN_HOST="$<TARGET_FILE:dlopen_host>" KRENV_LIBRARY="$<TARGET_FILE:krenv>")
add_dependencies(hosts_test dlopen_host krenv)

# Threads that work at the same time, mainly for the thread sanitizer.
krenv_test(threads_test SOURCES threads_test.cpp)
target_link_libraries(threads_test PRIVATE krenv::krenv)
