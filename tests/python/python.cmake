# The wheel of the Python package, installed into a folder: see scripts/python.
if(NOT VELMORA_TOOLS OR VELMORA_SANITIZE OR NOT EXISTS /usr/bin/python3)
  return()
endif()
execute_process(COMMAND /usr/bin/python3 -c
  "from importlib.util import find_spec; assert all(map(find_spec, 'pip pytest mypy setuptools wheel'.split()))"
  RESULT_VARIABLE VELMORA_PYTHON_MISSING OUTPUT_QUIET ERROR_QUIET)
if(VELMORA_PYTHON_MISSING)
  message(STATUS "No test of the Python package: scripts/python installs what it needs")
else()
  add_test(NAME python/package COMMAND ${PROJECT_SOURCE_DIR}/scripts/python test ${PROJECT_BINARY_DIR})
  set_tests_properties(python/package PROPERTIES TIMEOUT 300)
endif()
