# What `cmake --install` puts where, so that others find the library by CMake (VelmoraConfig.cmake) or by
# pkg-config (velmora.pc). The installed tree may be moved as a whole.
include(CMakePackageConfigHelpers)

set(VELMORA_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/${VELMORA_PACKAGE})

install(TARGETS velmora EXPORT VelmoraTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Library NAMELINK_COMPONENT Development
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Library
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/velmora
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}${VELMORA_INCLUDE_SUFFIX} COMPONENT Development FILES_MATCHING PATTERN "*.h")

if(VELMORA_DEF)
  install(FILES ${VELMORA_DEF} DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Development)
endif()

install(EXPORT VelmoraTargets NAMESPACE Velmora:: DESTINATION ${VELMORA_CMAKE_DIR} COMPONENT Development)
string(REPLACE ";" " " VELMORA_QT_MODULE_NAMES "${VELMORA_QT_MODULES}")
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/VelmoraConfig.cmake.in
  ${PROJECT_BINARY_DIR}/${VELMORA_PACKAGE}Config.cmake INSTALL_DESTINATION ${VELMORA_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/${VELMORA_PACKAGE}ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/${VELMORA_PACKAGE}Config.cmake ${PROJECT_BINARY_DIR}/${VELMORA_PACKAGE}ConfigVersion.cmake
  DESTINATION ${VELMORA_CMAKE_DIR} COMPONENT Development)

set(VELMORA_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH VELMORA_PC_PREFIX /prefix/${VELMORA_PC_DIR} /prefix)
string(REGEX REPLACE "/$" "" VELMORA_PC_PREFIX "${VELMORA_PC_PREFIX}")
# A program of the static library links what the library needs; one of the shared library does not.
list(TRANSFORM VELMORA_QT_MODULES PREPEND Qt${VELMORA_QT} OUTPUT_VARIABLE VELMORA_PC_NEEDS)
list(APPEND VELMORA_PC_NEEDS libcurl libssl libcrypto zlib)
string(REPLACE ";" " " VELMORA_PC_NEEDS "${VELMORA_PC_NEEDS}")
set(VELMORA_PC_PRIVATE ".private")
set(VELMORA_PC_DEFINITIONS "")
set(VELMORA_PC_LIBRARIES "")
if(NOT BUILD_SHARED_LIBS)
  set(VELMORA_PC_PRIVATE "")
  set(VELMORA_PC_DEFINITIONS " -DVELMORA_STATIC")
  set(VELMORA_PC_LIBRARIES " -lstdc++ -pthread")
endif()
configure_file(${CMAKE_CURRENT_LIST_DIR}/velmora.pc.in ${PROJECT_BINARY_DIR}/${VELMORA_LIBRARY_NAME}.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/${VELMORA_LIBRARY_NAME}.pc DESTINATION ${VELMORA_PC_DIR} COMPONENT Development)
