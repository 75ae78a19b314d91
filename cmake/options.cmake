# Warnings, hardening and sanitizers for everything that this project compiles.
include(CheckCXXCompilerFlag)

add_library(qvcore6_options INTERFACE)
target_compile_options(qvcore6_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>
  -fstack-protector-strong)

if(QVCORE6_SANITIZE)
  target_compile_options(qvcore6_options INTERFACE
    -fsanitize=${QVCORE6_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(qvcore6_options INTERFACE -fsanitize=${QVCORE6_SANITIZE})
else()
  # The C library wants optimised code for it.
  define_property(TARGET PROPERTY QV_IS_OPTIMISED INITIALIZE_FROM_VARIABLE QV_IS_OPTIMISED)
  set(QV_IS_OPTIMISED $<NOT:$<CONFIG:Debug>>)
  target_compile_options(qvcore6_options INTERFACE
    $<$<BOOL:$<TARGET_PROPERTY:QV_IS_OPTIMISED>>:-U_FORTIFY_SOURCE$<SEMICOLON>-D_FORTIFY_SOURCE=2>)
endif()

# Unique symbols would pin the library in the process and so break dlclose.
check_cxx_compiler_flag(-fno-gnu-unique QVCORE6_HAS_NO_GNU_UNIQUE)
if(QVCORE6_HAS_NO_GNU_UNIQUE)
  target_compile_options(qvcore6_options INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-fno-gnu-unique>)
endif()
