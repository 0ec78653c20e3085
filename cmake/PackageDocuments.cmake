# Called by CPack when each component lies in its folder: what every Debian package has, under the package's own name.
if(NOT CPACK_GENERATOR STREQUAL "DEB")
  return()
endif()
string(TIMESTAMP DATE "%a, %d %b %Y %H:%M:%S +0000" UTC) # of SOURCE_DATE_EPOCH, where that is set
string(TIMESTAMP YEAR "%Y" UTC)
foreach(COMPONENT IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${COMPONENT} UPPER)
  set(ROOT ${CPACK_TEMPORARY_DIRECTORY}/${COMPONENT}${CPACK_PACKAGING_INSTALL_PREFIX}/share)
  set(DOCUMENTS ${ROOT}/doc/${CPACK_DEBIAN_${UPPER}_PACKAGE_NAME})
  file(WRITE ${DOCUMENTS}/changelog.Debian
    "velmora (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium\n\n"
    "  * Version ${CPACK_PACKAGE_VERSION}; changelog.gz lists what changed.\n\n"
    " -- ${CPACK_PACKAGE_CONTACT}  ${DATE}\n")
  configure_file(${CPACK_VELMORA_SOURCE}/CHANGELOG.md ${DOCUMENTS}/changelog COPYONLY)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/copyright.in ${DOCUMENTS}/copyright @ONLY)
  if(COMPONENT STREQUAL "Tools") # headers alone: their code is in the programs
    foreach(PACKAGE libcli11-dev nlohmann-json3-dev)
      if(EXISTS /usr/share/doc/${PACKAGE}/copyright)
        file(READ /usr/share/doc/${PACKAGE}/copyright TEXT)
        file(APPEND ${DOCUMENTS}/copyright "\n==== ${PACKAGE}, compiled into the programs\n\n${TEXT}")
      endif()
    endforeach()
  endif()
  if(EXISTS ${ROOT}/zsh/site-functions) # the same by Debian's name
    file(RENAME ${ROOT}/zsh/site-functions ${ROOT}/zsh/vendor-completions)
  endif()
  file(GLOB COMPRESSED ${DOCUMENTS}/changelog* ${ROOT}/man/man1/*.1)
  execute_process(COMMAND gzip -9nf ${COMPRESSED} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
