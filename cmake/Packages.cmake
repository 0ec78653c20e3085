# Packages by `cpack`: the preset "packages" makes those of Debian, which scripts/packages builds, checks and tries.
if(VELMORA_DESKTOP)
  set(Velmora_QT ${VELMORA_QT})
  add_subdirectory(examples/desktop)
  set(DESKTOP ${PROJECT_SOURCE_DIR}/examples/desktop/velmora-desktop)
  set_target_properties(desktop PROPERTIES OUTPUT_NAME velmora-desktop)
  install(TARGETS desktop RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Desktop)
  install(FILES ${DESKTOP}.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications COMPONENT Desktop)
  install(FILES ${DESKTOP}.svg DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps COMPONENT Desktop)
  install(FILES ${DESKTOP}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT Desktop)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_PACKAGE_CONTACT "Velmora developers <developers@velmora.example>" CACHE STRING "Maintainer of the packages")
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL Library Development)
if(VELMORA_TOOLS)
  list(APPEND CPACK_COMPONENTS_ALL Tools)
endif()
if(VELMORA_DESKTOP)
  list(APPEND CPACK_COMPONENTS_ALL Desktop)
endif()
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/PackageDocuments.cmake)
set(CPACK_VELMORA_SOURCE ${PROJECT_SOURCE_DIR})

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_SOURCE velmora)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})

# Named as Debian has it: after the library, with a dash behind a digit.
set(LIBRARY_PACKAGE lib${VELMORA_LIBRARY_NAME}${PROJECT_VERSION_MAJOR})
string(REGEX REPLACE "([0-9])(${PROJECT_VERSION_MAJOR})$" "\\1-\\2" LIBRARY_PACKAGE ${LIBRARY_PACKAGE})
set(EXACTLY "${LIBRARY_PACKAGE} (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
set(AT_LEAST "${LIBRARY_PACKAGE} (>= ${PROJECT_VERSION})")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${LIBRARY_PACKAGE})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_RECOMMENDS ca-certificates)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/triggers)
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "client library for a cloud simulation service
Signs in, submits jobs, follows them live, and moves their files, which are
encrypted before they leave the machine.")

# What the CMake package and the pkg-config file ask for. No header includes any of it.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME lib${VELMORA_LIBRARY_NAME}-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(QT_PACKAGES "qtbase5-dev, libqt5websockets5-dev")
if(VELMORA_QT EQUAL 6)
  set(QT_PACKAGES "qt6-base-dev, qt6-websockets-dev")
endif()
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "${EXACTLY}, ${QT_PACKAGES}, libcurl4-openssl-dev, libssl-dev, zlib1g-dev")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "client library for a cloud simulation service: headers
What applications in C++, C and languages that call C are built against, with
a CMake package and a pkg-config file.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME velmora)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION science)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${AT_LEAST}")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "bash-completion, velmora-desktop")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "run simulations in the cloud from a terminal or a script
The command line client velmora; velmora-portal, the whole service on this
machine, to develop and test against; and velmora-demo, which shows both.")

set(CPACK_DEBIAN_DESKTOP_PACKAGE_NAME velmora-desktop)
set(CPACK_DEBIAN_DESKTOP_PACKAGE_SECTION science)
set(CPACK_DEBIAN_DESKTOP_PACKAGE_DEPENDS "${AT_LEAST}")
set(CPACK_DEBIAN_DESKTOP_DESCRIPTION "run simulations in the cloud from a window
Signs in, starts, watches and stops jobs, and moves their files.")

include(CPack)
