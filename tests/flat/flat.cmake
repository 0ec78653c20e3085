# The exports as the header declares them, one FLAT_EXPORT(name) a line, for tests that go through all of them.
set(FLAT_HEADER ${PROJECT_SOURCE_DIR}/include/velmora/CloudAPIFlat)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${FLAT_HEADER}.h ${FLAT_HEADER}Types.h)
file(READ ${FLAT_HEADER}.h FLAT_TEXT)
string(REGEX MATCHALL "\nVELMORA_EXPORT [^(]*\\(" FLAT_DECLARATIONS "${FLAT_TEXT}")
list(TRANSFORM FLAT_DECLARATIONS REPLACE ".*[ *]([A-Za-z_]+)\\($" "FLAT_EXPORT(\\1)")
list(JOIN FLAT_DECLARATIONS "\n" FLAT_EXPORTS)
file(CONFIGURE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/flat/Exports.inc CONTENT "${FLAT_EXPORTS}\n" @ONLY)

# And its views, one VIEW(Record, fields...) a line.
file(READ ${FLAT_HEADER}Types.h FLAT_TEXT)
string(REGEX REPLACE "//[^\n]*" "" FLAT_TEXT "${FLAT_TEXT}")
string(REPLACE ";" "," FLAT_TEXT "${FLAT_TEXT}") # which would divide a list
string(REGEX MATCHALL "struct Velmora[A-Za-z]+View {[^}]*," FLAT_VIEWS "${FLAT_TEXT}")
list(TRANSFORM FLAT_VIEWS REPLACE "struct Velmora([A-Za-z]+)View {" "VIEW(\\1")
list(TRANSFORM FLAT_VIEWS REPLACE "[ \n]+[A-Za-z0-9_ ]+[ *]([A-Za-z]+)," ", \\1")
list(JOIN FLAT_VIEWS ")\n" FLAT_VIEWS)
file(CONFIGURE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/flat/Views.inc CONTENT "${FLAT_VIEWS})\n" @ONLY)

add_library(flat_in_c OBJECT flat/InC.c)
set_target_properties(flat_in_c PROPERTIES C_STANDARD 11 C_STANDARD_REQUIRED ON C_EXTENSIONS OFF)
target_compile_options(flat_in_c PRIVATE -Wall -Wextra -Wpedantic -Wstrict-prototypes -Wundef -Werror)
target_include_directories(flat_in_c PRIVATE ${PROJECT_SOURCE_DIR}/include ${CMAKE_CURRENT_BINARY_DIR}/flat)
if(WIN32)
  target_compile_definitions(flat_in_c PRIVATE VELMORA_STATIC) # the test holds the library's objects
endif()
target_include_directories(test_flat PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/flat)
target_include_directories(test_model PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/flat)
target_link_libraries(test_flat PRIVATE flat_in_c)
target_compile_definitions(test_flat PRIVATE VELMORA_PROJECT_VERSION="${PROJECT_VERSION}")
