# What every target of the project is compiled with: quorvane_flags.
add_library(quorvane_flags INTERFACE)
target_include_directories(quorvane_flags INTERFACE ${PROJECT_SOURCE_DIR})

# One product and one sum, each rounded: no fused multiply-add, so that every compiler and
# processor writes the same samples.
target_compile_options(quorvane_flags INTERFACE -ffp-contract=off)

target_compile_options(quorvane_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion -Wcast-qual -Wformat=2
  -Wdouble-promotion
  $<$<COMPILE_LANGUAGE:CXX,OBJCXX>:-Wold-style-cast;-Woverloaded-virtual;-Wnon-virtual-dtor>
  $<$<BOOL:${QUORVANE_WERROR}>:-Werror>)

if(QUORVANE_SANITIZE)
  set(sanitizers -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  target_compile_options(quorvane_flags INTERFACE ${sanitizers})
  target_link_options(quorvane_flags INTERFACE ${sanitizers})
endif()
