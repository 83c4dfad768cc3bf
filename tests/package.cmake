# The installed package as an outside project sees it, and the symbols that the libraries export.

# An outside project against the installed package, found in either way.
foreach(method cmake pkg-config)
  add_test(NAME package.${method}
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/package_test.sh ${method} ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR}/examples)
  set_tests_properties(package.${method} PROPERTIES TIMEOUT 300)
endforeach()

# The lists hold the names of the 32-bit build as it is shipped; sanitizers and coverage add symbols of their own.
if(CMAKE_SIZEOF_VOID_P EQUAL 4 AND NOT KRENV_SANITIZE AND NOT KRENV_COVERAGE)
  add_test(NAME exports.krenv COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/exports_test.sh
    $<TARGET_FILE:krenv> ${PROJECT_SOURCE_DIR}/src/krenv.exports)
  if(TARGET krfacilities)
    add_test(NAME exports.krfacilities COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/exports_test.sh
      $<TARGET_FILE:krfacilities> ${PROJECT_SOURCE_DIR}/facilities/krfacilities.exports)
  endif()
endif()
