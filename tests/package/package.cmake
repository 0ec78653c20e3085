# Users of the installed library; sanitizers would have to be built into them and into Python.
find_package(Python3 3.11 COMPONENTS Interpreter)
find_program(PKG_CONFIG_PROGRAM pkg-config)
if(Python3_FOUND AND PKG_CONFIG_PROGRAM AND VELMORA_TOOLS AND NOT VELMORA_SANITIZE)
  add_test(NAME package/applications COMMAND ${Python3_EXECUTABLE} -B ${CMAKE_CURRENT_LIST_DIR}/applications.py ${PROJECT_BINARY_DIR} -v)
  set_tests_properties(package/applications PROPERTIES TIMEOUT 1200)
endif()
