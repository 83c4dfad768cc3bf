# Installs the components `runtime`, `development`, `tool` and `exporter`, and on 64 bits `fleet`. The installed tree may lie
# anywhere and be moved. An outside project finds it with find_package(krenv), which defines krenv::krenv and krenv::facilities, or with
# `pkg-config krenv` and `pkg-config krfacilities`.
set(krenv_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/krenv)
set(krenv_libraries krenv)
set(krenv_headers inc/)
if(TARGET krfacilities)
  list(APPEND krenv_libraries krfacilities)
  list(APPEND krenv_headers facilities/inc/)
  set(krenv_requires krfacilities)
endif()

# --- The libraries ----------------------------------------------------------------------------------------------------

install(TARGETS ${krenv_libraries} EXPORT krenvTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)

# --- Headers, and files for CMake and pkg-config ----------------------------------------------------------------------

install(DIRECTORY ${krenv_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/krenv COMPONENT development
  FILES_MATCHING PATTERN "*.h")

install(EXPORT krenvTargets NAMESPACE krenv:: DESTINATION ${krenv_package_dir} COMPONENT development)
configure_package_config_file(cmake/krenvConfig.cmake.in ${PROJECT_BINARY_DIR}/krenvConfig.cmake
  INSTALL_DESTINATION ${krenv_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/krenvConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/krenvConfig.cmake ${PROJECT_BINARY_DIR}/krenvConfigVersion.cmake
  DESTINATION ${krenv_package_dir} COMPONENT development)

# The relative path from the directory of the .pc files to the top of the installed tree.
string(REGEX REPLACE "[^/]+" ".." krenv_up ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
foreach(library IN LISTS krenv_libraries)
  configure_file(cmake/${library}.pc.in ${PROJECT_BINARY_DIR}/${library}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${library}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endforeach()

install(FILES README.md CHANGELOG.md CONTRIBUTING.md SECURITY.md LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs COMPONENT development FILES_MATCHING PATTERN "*.md" PATTERN "*.png")
install(DIRECTORY examples/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT development)

# --- pmenv and pmenv-exporter ------------------------------------------------------------------------------------------------------------

if(TARGET pmenv)
  set_target_properties(pmenv PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}" BUILD_RPATH_USE_ORIGIN ON)
  install(TARGETS pmenv RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
  install(FILES ${PROJECT_BINARY_DIR}/pmenv.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tool)
  install(FILES ${PROJECT_BINARY_DIR}/pmenv.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME pmenv
    COMPONENT tool)
  install(FILES ${PROJECT_BINARY_DIR}/pmenv.zsh DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions RENAME _pmenv
    COMPONENT tool)
  install(FILES ${PROJECT_BINARY_DIR}/pmenv.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d
    COMPONENT tool)
  install(FILES examples/pressmark.ini examples/pressmark.keys DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/pmenv/examples COMPONENT tool)

  set_target_properties(pmenv-exporter PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}" BUILD_RPATH_USE_ORIGIN ON)
  install(TARGETS pmenv-exporter RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT exporter)
  install(FILES tools/pmenv-exporter/pmenv-exporter.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT exporter)
  install(DIRECTORY tools/pmenv-exporter/systemd/ DESTINATION lib/systemd/system COMPONENT exporter)
  # What a collector needs to make sense of the exporter's metrics.
  install(DIRECTORY share/prometheus share/grafana DESTINATION ${CMAKE_INSTALL_DATADIR}/pmenv COMPONENT exporter)
endif()

# --- pmenv-fleet ------------------------------------------------------------------------------------------------------

if(TARGET pmenv-fleet)
  set_target_properties(pmenv-fleet PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}" BUILD_RPATH_USE_ORIGIN ON)
  install(TARGETS pmenv-fleet RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT fleet)
  install(FILES ${PROJECT_BINARY_DIR}/pmenv-fleet.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT fleet)
endif()
