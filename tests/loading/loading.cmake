# An application that loads and unloads the library a hundred times; a sanitizer could not be unloaded.
if(NOT VELMORA_SANITIZE)
  add_library(velmora_loading_trust MODULE loading/trust.cpp)
  target_link_libraries(velmora_loading_trust PRIVATE velmora_options Qt${VELMORA_QT}::Network)
  set_target_properties(velmora_loading_trust PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
  add_executable(velmora_loading loading/main.cpp loading/Process.h)
  target_link_libraries(velmora_loading PRIVATE
    velmora_options velmora_portal ${CMAKE_DL_LIBS} $<$<BOOL:${WIN32}>:ntdll>)
  add_dependencies(velmora_loading velmora)
  add_test(NAME loading/hundred COMMAND velmora_loading $<TARGET_FILE:velmora> $<TARGET_FILE:velmora_loading_trust>)
  set_tests_properties(loading/hundred PROPERTIES TIMEOUT 300)
endif()
