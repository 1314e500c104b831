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
  # g++ 12 takes what the sanitizers add around std::optional for a use of what is not there yet.
  target_compile_options(quorvane_flags INTERFACE ${sanitizers}
    $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  target_link_options(quorvane_flags INTERFACE ${sanitizers})
endif()
if(QUORVANE_SANITIZE_THREADS)
  target_compile_options(quorvane_flags INTERFACE -fsanitize=thread -fno-omit-frame-pointer)
  target_link_options(quorvane_flags INTERFACE -fsanitize=thread)
endif()
if(QUORVANE_FUZZ)
  target_compile_options(quorvane_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()

# A fault in a decoder that reads a stranger's file must not become more than a failed file: position
# independent programs with read-only relocations, stack and heap checks, no executable stack. The
# fortified C library needs an optimised build; the sanitizers bring checks of their own.
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
include(CheckPIESupported)
check_pie_supported()
if(NOT QUORVANE_SANITIZE AND NOT QUORVANE_SANITIZE_THREADS AND NOT QUORVANE_FUZZ)
  target_compile_options(quorvane_flags INTERFACE
    -fstack-protector-strong
    $<$<CONFIG:Release,RelWithDebInfo>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64" AND NOT APPLE)
    target_compile_options(quorvane_flags INTERFACE -fcf-protection)
  endif()
  if(NOT APPLE)
    target_link_options(quorvane_flags INTERFACE
      LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
  endif()
endif()
