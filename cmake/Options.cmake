# What every target of our own is compiled with: link it as velmora_options.
add_library(velmora_options INTERFACE)
target_compile_options(velmora_options INTERFACE
  -Wall -Wextra -Wpedantic -Werror -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wextra-semi -Wundef
  $<$<CXX_COMPILER_ID:Clang>:-Wno-gnu-zero-variadic-macro-arguments>) # Qt's logging macros
target_compile_definitions(velmora_options INTERFACE
  QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_KEYWORDS QT_DEPRECATED_WARNINGS)

if(VELMORA_SANITIZE STREQUAL "fuzzer") # by clang only; main comes from the fuzzer where a target links it
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
elseif(VELMORA_SANITIZE)
  add_compile_options(-fsanitize=${VELMORA_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${VELMORA_SANITIZE})
  if(VELMORA_SANITIZE STREQUAL "address")
    add_compile_options(-fsanitize=undefined -fno-sanitize-recover=undefined)
    add_link_options(-fsanitize=undefined)
  endif()
endif()
