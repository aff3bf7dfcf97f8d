# Compile and link options that every target of this project shares.

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow
                    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>)
if(KALODLL_WERROR)
  add_compile_options(-Werror)
endif()

if(KALODLL_SANITIZE)
  add_compile_options(-fsanitize=${KALODLL_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${KALODLL_SANITIZE})
endif()
