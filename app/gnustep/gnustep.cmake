# Finds what the application needs on Linux, lists in `missing` what is not there, and else makes
# the target `gnustep`: flags and libraries for Objective-C++.

find_package(PkgConfig QUIET)
if(PKG_CONFIG_FOUND)
  pkg_check_modules(FONTCONFIG QUIET IMPORTED_TARGET fontconfig)
  pkg_check_modules(XLIB QUIET IMPORTED_TARGET x11)
endif()
find_program(OBJCXX_CLANG NAMES clang++ clang++-14)
find_path(BLOCK_HEADER Block.h)
find_path(GNUSTEP_HEADERS AppKit/AppKit.h PATH_SUFFIXES GNUstep)
find_library(GNUSTEP_GUI gnustep-gui)
find_library(GNUSTEP_BASE gnustep-base)
# The runtime's headers and library lie in GCC's own folders, where clang does not look.
execute_process(COMMAND gcc -print-file-name=include
  OUTPUT_VARIABLE gcc_headers OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
execute_process(COMMAND gcc -print-file-name=libobjc.so
  OUTPUT_VARIABLE gcc_objc OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)

foreach(need IN ITEMS OBJCXX_CLANG BLOCK_HEADER GNUSTEP_HEADERS GNUSTEP_GUI GNUSTEP_BASE
                      FONTCONFIG_FOUND XLIB_FOUND)
  if(NOT ${need})
    list(APPEND missing ${need})
  endif()
endforeach()
if(NOT EXISTS "${gcc_headers}/objc/objc.h" OR NOT EXISTS "${gcc_objc}")
  list(APPEND missing libobjc)
endif()
if(missing)
  return()
endif()

# Only clang has blocks for this runtime; the rest of the program keeps its compiler.
if(NOT CMAKE_OBJCXX_COMPILER)
  set(CMAKE_OBJCXX_COMPILER ${OBJCXX_CLANG})
endif()

add_library(gnustep INTERFACE)
target_compile_definitions(gnustep INTERFACE
  GNUSTEP GNUSTEP_BASE_LIBRARY=1 GNU_GUI_LIBRARY=1 GNU_RUNTIME=1 _NATIVE_OBJC_EXCEPTIONS)
set(objective_flags
  -fobjc-runtime=gcc -fblocks -fexceptions -fobjc-exceptions
  -fconstant-string-class=NSConstantString -fno-strict-aliasing -pthread
  -idirafter ${gcc_headers} -include missing_methods.h)
target_compile_options(gnustep INTERFACE "$<$<COMPILE_LANGUAGE:OBJCXX>:${objective_flags}>")
target_include_directories(gnustep INTERFACE ${CMAKE_CURRENT_LIST_DIR}/include)
target_include_directories(gnustep SYSTEM INTERFACE ${GNUSTEP_HEADERS})
target_link_libraries(gnustep INTERFACE
  ${GNUSTEP_GUI} ${GNUSTEP_BASE} ${gcc_objc} PkgConfig::FONTCONFIG PkgConfig::XLIB
  pthread dl m)
