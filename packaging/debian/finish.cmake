# CPack runs this between installing and packing. It adds to each Debian package its changelog, copyright, lintian
# overrides and bill of materials, compresses its manual page and removes the run-time search path, which libraries in the
# system's directories do not need.
function(compress file to)
  execute_process(COMMAND gzip -9nc ${file} OUTPUT_FILE ${to} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} COMPONENT)
  set(package ${CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME})
  set(usr ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}/usr)

  file(COPY ${CPACK_KRENV_DEBIAN_DIR}/copyright DESTINATION ${usr}/share/doc/${package})
  compress(${CPACK_KRENV_DEBIAN_CHANGELOG} ${usr}/share/doc/${package}/changelog.Debian.gz)
  configure_file(${CPACK_KRENV_DEBIAN_DIR}/${package}.lintian-overrides ${usr}/share/lintian/overrides/${package} COPYONLY)

  file(GLOB pages ${usr}/share/man/man1/*.1)
  foreach(page IN LISTS pages)
    compress(${page} ${page}.gz)
    file(REMOVE ${page})
  endforeach()

  file(GLOB binaries ${usr}/bin/* ${usr}/lib/*/*.so.*.*.*)
  foreach(binary IN LISTS binaries)
    file(RPATH_REMOVE FILE ${binary})
  endforeach()

  # The bills of two architectures differ, and both can be installed together.
  set(architecture ${CPACK_DEBIAN_PACKAGE_ARCHITECTURE})
  execute_process(COMMAND ${CPACK_KRENV_DEBIAN_DIR}/../bill.sh
      ${package} ${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE} ${architecture} ${CPACK_KRENV_BUILD_DIR} ${usr}
    OUTPUT_FILE ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}/bill COMMAND_ERROR_IS_FATAL ANY)
  file(RENAME ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}/bill
    ${usr}/share/doc/${package}/${package}_${architecture}.spdx.json)

  # Nothing depends on the modes of the checkout.
  execute_process(COMMAND chmod -R u=rwX,go=rX ${usr} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
