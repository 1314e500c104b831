# Compiles the sources of a room as one, so that the headers they share are read, instantiated and
# analysed once: for clang-tidy and for the quick build of script/level and script/app, whose programs
# write the same bytes. What ships compiles each source by itself, and so shows an include that is
# missing.

# The rooms of the engine that are not a step's. Steps are small and include the same headers: they go
# together, as do the rooms of the window, where every source includes most of Qt's headers.
set(rooms_of_the_engine audio files level reporting run segment step stream)
list(TRANSFORM rooms_of_the_engine PREPEND Common/)

# The names that a source defines at file level, each with the namespace it stands in: what clang-format
# leaves in the first column before a parenthesis, a bracket, a brace or an equals sign.
function(names_at_file_level source result)
  file(STRINGS ${source} lines REGEX "^([a-zA-Z].*[({=[]|}  // namespace .)")
  set(names)
  set(space)
  foreach(line IN LISTS lines)
    if(line MATCHES "^namespace ([A-Za-z0-9_:]+) {")
      set(space ${CMAKE_MATCH_1})
    elseif(line MATCHES "^}")
      set(space)
    elseif(line MATCHES "^(namespace|using)")
      continue()
    elseif(line MATCHES "^(struct|class|union|enum class|enum) ([A-Za-z0-9_]+)")
      list(APPEND names ${space}/${CMAKE_MATCH_2})
    elseif(line MATCHES "^([a-zA-Z][^(){}=]*[ *&])([A-Za-z0-9_]+)( =|[({[])")
      list(APPEND names ${space}/${CMAKE_MATCH_2})
    endif()
  endforeach()
  list(REMOVE_DUPLICATES names)
  set(${result} ${names} PARENT_SCOPE)
endfunction()

# A group for each room that has sources in the target. A source that repeats a name of one before it in
# its group is compiled alone.
function(compile_rooms_of_target_together target)
  get_target_property(folder ${target} SOURCE_DIR)
  get_target_property(sources ${target} SOURCES)
  list(FILTER sources INCLUDE REGEX "[.]cpp$")
  foreach(source IN LISTS sources)
    cmake_path(ABSOLUTE_PATH source BASE_DIRECTORY ${folder})
    if(NOT EXISTS ${source})
      continue()  # the build writes it
    endif()
    cmake_path(RELATIVE_PATH source BASE_DIRECTORY ${PROJECT_SOURCE_DIR} OUTPUT_VARIABLE path)
    cmake_path(GET path PARENT_PATH room)
    if(room MATCHES "^Common/" AND NOT room IN_LIST rooms_of_the_engine)
      set(room steps)
    elseif(room MATCHES "^desktop/")
      set(room desktop)
    endif()
    string(MAKE_C_IDENTIFIER "${room}" group)
    set_source_files_properties(${source} TARGET_DIRECTORY ${target} PROPERTIES UNITY_GROUP ${group})
    names_at_file_level(${source} names)
    set(fresh ${names})
    list(REMOVE_ITEM fresh "" ${names_of_${group}})
    list(LENGTH names all)
    list(LENGTH fresh left)
    if(left LESS all)
      set_source_files_properties(${source} TARGET_DIRECTORY ${target}
        PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
    else()
      list(APPEND names_of_${group} ${names})
    endif()
  endforeach()
  set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP
    UNITY_BUILD_CODE_BEFORE_INCLUDE "// NOLINTNEXTLINE(bugprone-suspicious-include)")
  # g++ warns of every type in the unnamed namespace of an included source, as if it were a header.
  target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
endfunction()

# Every target of the folder and of those below it. Not the tests: files of tests give short names of their
# own to rows and helpers.
function(compile_rooms_together folder)
  if(folder STREQUAL "${CMAKE_SOURCE_DIR}/tests")
    return()
  endif()
  get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target IN LISTS targets)
    get_target_property(type ${target} TYPE)
    if(type MATCHES "EXECUTABLE|(STATIC|OBJECT|MODULE)_LIBRARY")
      compile_rooms_of_target_together(${target})
    endif()
  endforeach()
  get_property(inner DIRECTORY ${folder} PROPERTY SUBDIRECTORIES)
  foreach(each IN LISTS inner)
    compile_rooms_together(${each})
  endforeach()
endfunction()
