# CPack runs this on the finished packages. CPack 3.25 has no variable for Multi-Arch, and it writes scripts that call
# ldconfig where Debian wants a trigger. This script corrects both.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
  if(NOT package MATCHES "/(libkrenv[^/]*)_[^/]*\\.deb$")
    continue()
  endif()
  set(contents ${CPACK_TEMPORARY_DIRECTORY}/${CMAKE_MATCH_1})
  execute_process(COMMAND dpkg-deb --raw-extract ${package} ${contents} COMMAND_ERROR_IS_FATAL ANY)

  file(READ ${contents}/DEBIAN/control control)
  string(REPLACE "\nSection:" "\nMulti-Arch: same\nSection:" control "${control}")
  file(WRITE ${contents}/DEBIAN/control "${control}")
  if(EXISTS ${contents}/DEBIAN/shlibs)
    file(REMOVE ${contents}/DEBIAN/postinst ${contents}/DEBIAN/postrm)
    file(WRITE ${contents}/DEBIAN/triggers "activate-noawait ldconfig\n")
  endif()

  execute_process(COMMAND dpkg-deb --root-owner-group --build ${contents} ${package}
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
endforeach()
