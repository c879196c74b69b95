if(IGMPSNOOP_SANITIZE)
  add_compile_options(-fsanitize=${IGMPSNOOP_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${IGMPSNOOP_SANITIZE})
  add_compile_definitions(_GLIBCXX_ASSERTIONS)
else()
  # A library that lacks a symbol fails here and not in its user's hands. Not with sanitizers: clang
  # leaves their symbols to be found in the program.
  add_link_options($<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,SHARED_LIBRARY>:LINKER:--no-undefined>)
endif()
