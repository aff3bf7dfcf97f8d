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

# Hardens the shipped binaries like the platform's own. Fortified calls need optimisation and would
# hide errors from a sanitizer.
function(kalodll_harden)
  foreach(target IN LISTS ARGN)
    target_compile_options(${target} PRIVATE
      -fstack-protector-strong -fstack-clash-protection -fcf-protection)
    if(NOT KALODLL_SANITIZE AND NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
      target_compile_options(${target} PRIVATE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
    endif()
    target_link_options(${target} PRIVATE "LINKER:-z,relro,-z,now,-z,noexecstack")
  endforeach()
endfunction()
