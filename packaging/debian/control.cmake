# CPack runs this on the finished packages. CPack 3.25 has no variable for Multi-Arch, and it writes scripts that call
# ldconfig where Debian wants a trigger. This script corrects both, and packs the files again in the order of their names,
# all of the age SOURCE_DATE_EPOCH.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
  string(REGEX MATCH "/([^/_]*)_[^/]*\\.deb$" file ${package})
  set(name ${CMAKE_MATCH_1})
  set(contents ${CPACK_TEMPORARY_DIRECTORY}/${name})
  execute_process(COMMAND dpkg-deb --raw-extract ${package} ${contents} COMMAND_ERROR_IS_FATAL ANY)

  # A pmenv of any architecture can start pmenv-fleet.
  set(multi_arch "")
  if(name MATCHES "^libkrenv")
    set(multi_arch same)
  elseif(name STREQUAL "pmenv-fleet")
    set(multi_arch foreign)
  endif()
  if(multi_arch)
    file(READ ${contents}/DEBIAN/control control)
    string(REPLACE "\nSection:" "\nMulti-Arch: ${multi_arch}\nSection:" control "${control}")
    file(WRITE ${contents}/DEBIAN/control "${control}")
  endif()
  if(EXISTS ${contents}/DEBIAN/shlibs)
    file(REMOVE ${contents}/DEBIAN/postinst ${contents}/DEBIAN/postrm)
    file(WRITE ${contents}/DEBIAN/triggers "activate-noawait ldconfig\n")
  endif()

  execute_process(COMMAND sort -k 2 -o ${contents}/DEBIAN/md5sums ${contents}/DEBIAN/md5sums COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND find ${contents} -exec touch -h -d @$ENV{SOURCE_DATE_EPOCH} {} + COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND dpkg-deb --root-owner-group --threads-max=1 --build ${contents} ${package}
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
endforeach()
