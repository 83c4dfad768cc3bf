# What is installed, and the archives made of it. An outside project finds it with find_package(krenv), which gives
# krenv::krenv and krenv::facilities, or with `pkg-config krenv`.
set(krenv_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/krenv)

install(TARGETS krenv EXPORT krenvTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY inc/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/krenv FILES_MATCHING PATTERN "*.h")
if(TARGET krfacilities)
  install(TARGETS krfacilities EXPORT krenvTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(DIRECTORY facilities/inc/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/krenv FILES_MATCHING PATTERN "*.h")
endif()

install(EXPORT krenvTargets NAMESPACE krenv:: DESTINATION ${krenv_package_dir})
configure_package_config_file(cmake/krenvConfig.cmake.in ${PROJECT_BINARY_DIR}/krenvConfig.cmake
  INSTALL_DESTINATION ${krenv_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/krenvConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/krenvConfig.cmake ${PROJECT_BINARY_DIR}/krenvConfigVersion.cmake
  DESTINATION ${krenv_package_dir})
configure_file(cmake/krenv.pc.in ${PROJECT_BINARY_DIR}/krenv.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/krenv.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(TARGET pmenv)
  set_target_properties(pmenv PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  install(TARGETS pmenv RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES tools/pmenv/pmenv.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES tools/pmenv/pmenv.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME pmenv)
endif()
install(FILES README.md CHANGELOG.md LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs FILES_MATCHING PATTERN "*.md")
install(FILES examples/pressmark.ini DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
install(DIRECTORY examples/host DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)

# --- Archives: one that unpacks anywhere, and a Debian package --------------------------------------------------------

if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  set(krenv_architecture i386)
else()
  set(krenv_architecture amd64)
endif()
set(CPACK_GENERATOR TGZ DEB)
set(CPACK_PACKAGE_NAME krenv)
set(CPACK_PACKAGE_FILE_NAME krenv-${PROJECT_VERSION}-linux-${krenv_architecture})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_CONTACT "the krenv maintainers")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${krenv_architecture})
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
# By hand, because the i386 libraries' packages need not be on the building machine: what Debian 12 has.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.34), libgcc-s1, libstdc++6 (>= 12)")
include(CPack)
