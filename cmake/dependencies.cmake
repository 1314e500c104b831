find_package(Boost 1.70 REQUIRED COMPONENTS program_options filesystem thread)
find_package(SndFile CONFIG QUIET)
if(NOT TARGET SndFile::sndfile)  # Debian's package has no CMake files
  find_path(SNDFILE_INCLUDE_DIR sndfile.h REQUIRED)
  find_library(SNDFILE_LIBRARY sndfile REQUIRED)
  add_library(SndFile::sndfile UNKNOWN IMPORTED)
  set_target_properties(SndFile::sndfile PROPERTIES
    IMPORTED_LOCATION ${SNDFILE_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${SNDFILE_INCLUDE_DIR})
endif()

# Of the command line alone.
find_package(PkgConfig REQUIRED)
pkg_check_modules(TAGLIB REQUIRED IMPORTED_TARGET taglib)
pkg_check_modules(FFMPEG REQUIRED IMPORTED_TARGET
  libavformat>=59.27 libavcodec libavutil libswresample)
find_package(fmt REQUIRED)
find_package(nlohmann_json REQUIRED)
find_path(XXHASH_INCLUDE_DIR xxhash.h REQUIRED)
find_library(XXHASH_LIBRARY xxhash REQUIRED)
