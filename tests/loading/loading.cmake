# An application that loads and unloads the library a hundred times; a sanitizer could not be unloaded.
if(NOT VELMORA_SANITIZE)
  add_executable(velmora_loading loading/main.cpp loading/Process.h)
  target_link_libraries(velmora_loading PRIVATE
    velmora_options velmora_portal ${CMAKE_DL_LIBS} $<$<BOOL:${WIN32}>:ntdll>)
  add_dependencies(velmora_loading velmora)
  add_test(NAME loading/hundred COMMAND velmora_loading $<TARGET_FILE:velmora>)
  set_tests_properties(loading/hundred PROPERTIES TIMEOUT 300)
endif()
