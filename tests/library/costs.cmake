# Tests the cost of the hot operations, in instructions and system calls, on the one build that has limits.
if(CMAKE_BUILD_TYPE STREQUAL "Release" AND CMAKE_SIZEOF_VOID_P EQUAL 8 AND NOT KRENV_SANITIZE)
  add_executable(costs_driver costs_driver.cpp)
  target_include_directories(costs_driver PRIVATE ${support})
  target_link_libraries(costs_driver PRIVATE krenv_options krenv::krenv)
  add_test(NAME costs
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/costs_test.sh $<TARGET_FILE:costs_driver> ${CMAKE_CURRENT_SOURCE_DIR}/costs.limits)
  # Checks that a driver that does nothing fails the test instead of passing as cheap.
  add_test(NAME costs.self COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/costs_test.sh /bin/true ${CMAKE_CURRENT_SOURCE_DIR}/costs.limits)
  set_tests_properties(costs.self PROPERTIES PASS_REGULAR_EXPRESSION "nothing was measured")
  set_tests_properties(costs costs.self PROPERTIES TIMEOUT 600)
endif()
