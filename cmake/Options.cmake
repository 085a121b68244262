# Compiler options of all our targets.
if(DEVELOPER_WARNINGS)
  add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual
                      -Wcast-qual -Wimplicit-fallthrough -Werror)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    add_compile_options(-Wreserved-identifier -Wreserved-macro-identifier)
  endif()
endif()

if(SANITIZERS)
  add_compile_options(-fsanitize=${SANITIZERS} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${SANITIZERS})
endif()

add_link_options(-Wl,--as-needed)
