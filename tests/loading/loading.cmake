# An application that loads and unloads the library a hundred times; a sanitizer could not be unloaded.
if(NOT VELMORA_SANITIZE)
  find_package(Boost 1.81 REQUIRED) # headers only: DLL
  add_executable(velmora_loading loading/main.cpp loading/Process.h)
  target_link_libraries(velmora_loading PRIVATE
    velmora_options velmora_portal Boost::headers ${CMAKE_DL_LIBS} $<$<BOOL:${WIN32}>:ntdll>)
  target_compile_definitions(velmora_loading PRIVATE BOOST_DLL_USE_STD_FS)
  add_dependencies(velmora_loading velmora)
  add_test(NAME loading/hundred COMMAND velmora_loading $<TARGET_FILE:velmora>)
  set_tests_properties(loading/hundred PROPERTIES TIMEOUT 300)
endif()
