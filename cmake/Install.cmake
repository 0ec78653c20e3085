# What `cmake --install` puts where, so that others find the library by CMake (VelmoraConfig.cmake) or by
# pkg-config (velmora.pc). The installed tree may be moved as a whole.
include(CMakePackageConfigHelpers)

set(VELMORA_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Velmora)

install(TARGETS velmora EXPORT VelmoraTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Library NAMELINK_COMPONENT Development
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Library
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/velmora DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  COMPONENT Development FILES_MATCHING PATTERN "*.h")

if(VELMORA_DEF)
  install(FILES ${VELMORA_DEF} DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Development)
endif()

install(EXPORT VelmoraTargets NAMESPACE Velmora:: DESTINATION ${VELMORA_CMAKE_DIR} COMPONENT Development)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/VelmoraConfig.cmake.in
  ${PROJECT_BINARY_DIR}/VelmoraConfig.cmake INSTALL_DESTINATION ${VELMORA_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VelmoraConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VelmoraConfig.cmake ${PROJECT_BINARY_DIR}/VelmoraConfigVersion.cmake
  DESTINATION ${VELMORA_CMAKE_DIR} COMPONENT Development)

set(VELMORA_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH VELMORA_PC_PREFIX /prefix/${VELMORA_PC_DIR} /prefix)
string(REGEX REPLACE "/$" "" VELMORA_PC_PREFIX "${VELMORA_PC_PREFIX}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/velmora.pc.in ${PROJECT_BINARY_DIR}/velmora.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/velmora.pc DESTINATION ${VELMORA_PC_DIR} COMPONENT Development)
