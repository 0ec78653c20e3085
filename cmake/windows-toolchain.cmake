# Cross build for Windows x86-64 with Debian's MinGW-w64, the variant with POSIX threads (for std::thread).
# scripts/windows uses it; by hand: cmake --preset windows, with these set in the environment or by -D:
#   VELMORA_WINDOWS_KIT     folder with Qt 5.15, OpenSSL 3 and libcurl for MinGW-w64: bin/, include/, lib/
#   VELMORA_WINDOWS_PREFIX  folder with what only the tests and tools need: headers, GoogleTest
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(TRIPLET x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${TRIPLET}-windres)

# The projects of try_compile read this file again, without our cache.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VELMORA_WINDOWS_KIT VELMORA_WINDOWS_PREFIX)
foreach(FOLDER VELMORA_WINDOWS_KIT VELMORA_WINDOWS_PREFIX)
  if(NOT ${FOLDER} AND DEFINED ENV{${FOLDER}})
    set(${FOLDER} "$ENV{${FOLDER}}")
  endif()
  set(${FOLDER} "${${FOLDER}}" CACHE PATH "See cmake/windows-toolchain.cmake")
endforeach()
if(NOT IS_DIRECTORY "${VELMORA_WINDOWS_KIT}")
  message(FATAL_ERROR "VELMORA_WINDOWS_KIT names no folder; scripts/windows --help says what belongs into it")
endif()

set(OPENSSL_ROOT_DIR "${VELMORA_WINDOWS_KIT}")
set(CMAKE_FIND_ROOT_PATH "${VELMORA_WINDOWS_KIT}" ${VELMORA_WINDOWS_PREFIX} /usr/${TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# ctest runs what was built through it.
find_program(WINE_PROGRAM NAMES wine64 wine)
if(WINE_PROGRAM)
  set(CMAKE_CROSSCOMPILING_EMULATOR "${WINE_PROGRAM}")
endif()
