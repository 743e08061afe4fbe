# Run by cpack between installing the components below CPACK_TEMPORARY_DIRECTORY and packing
# them: adds the copyright and a changelog to each package, and compresses its manual.
find_program(GZIP gzip REQUIRED)
foreach(entry ${CPACK_KEELSTONE_PACKAGES})
  string(REPLACE ":" ";" entry ${entry})
  list(GET entry 0 component)
  list(GET entry 1 package)
  set(root ${CPACK_TEMPORARY_DIRECTORY}/${component}${CPACK_PACKAGING_INSTALL_PREFIX})
  if(NOT EXISTS ${root})
    continue()
  endif()
  set(documents ${root}/share/doc/${package})
  file(COPY ${CPACK_KEELSTONE_DOCUMENTS}/copyright DESTINATION ${documents})
  set(changelog ${documents}/changelog.Debian)
  file(WRITE ${changelog}
"keelstone (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium

  * See the changelog of Keelstone.

 -- ${CPACK_DEBIAN_PACKAGE_MAINTAINER}  Sat, 21 Nov 2026 00:00:00 +0000
")
  file(GLOB manual ${root}/share/man/man1/*.1)
  execute_process(COMMAND ${GZIP} -9nf ${changelog} ${manual} COMMAND_ERROR_IS_FATAL ANY)
  file(CHMOD_RECURSE ${documents} FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ
       DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                             WORLD_READ WORLD_EXECUTE)
endforeach()
