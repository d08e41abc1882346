# Warnings and sanitizers of our own builds; nothing of it is passed on to users of the library.
add_library(sca_build_settings INTERFACE)
target_compile_options(sca_build_settings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wnon-virtual-dtor -fno-omit-frame-pointer
  $<$<BOOL:${SCA_WERROR}>:-Werror>
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
if(SCA_SANITIZE)
  target_compile_options(sca_build_settings INTERFACE
    -fsanitize=${SCA_SANITIZE} -fno-sanitize-recover=undefined)
  target_link_options(sca_build_settings INTERFACE -fsanitize=${SCA_SANITIZE})
endif()
if(SCA_COVERAGE)
  target_compile_options(sca_build_settings INTERFACE --coverage)
  target_link_options(sca_build_settings INTERFACE --coverage)
endif()
