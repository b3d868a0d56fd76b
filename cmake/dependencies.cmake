# What stands behind the library names. For each of UBOX, TERMBOX, TRELL and ARGTABLE the cache
# variable ZORVAD_<NAME> says where it comes from:
#   auto     the system's library where it is found, else the stand-in (the default)
#   system   the system's library, or the configuration fails
#   standin  the layer below standin/
# libvterm always is the system's.

set(dependency_summary "")

# find_dependency_pair(NAME target [HEADER h] [LIBRARY l]): makes dep::target from the system's
# header and library, or from standin/target.
function(find_dependency_pair NAME target)
  cmake_parse_arguments(ARG "" "HEADER;LIBRARY" "" ${ARGN})
  set(ZORVAD_${NAME} auto CACHE STRING "auto, system or standin: the source of ${target}")
  set_property(CACHE ZORVAD_${NAME} PROPERTY STRINGS auto system standin)
  set(choice ${ZORVAD_${NAME}})
  if(NOT choice MATCHES "^(auto|system|standin)$")
    message(FATAL_ERROR "ZORVAD_${NAME} is '${choice}': use auto, system or standin")
  endif()

  set(missing "")
  if(ARG_HEADER AND NOT choice STREQUAL standin)
    find_path(${NAME}_INCLUDE_DIR ${ARG_HEADER})
    mark_as_advanced(${NAME}_INCLUDE_DIR)
    if(NOT ${NAME}_INCLUDE_DIR)
      list(APPEND missing "the header ${ARG_HEADER}")
    endif()
  endif()
  if(ARG_LIBRARY AND NOT choice STREQUAL standin)
    find_library(${NAME}_LIBRARY ${ARG_LIBRARY})
    mark_as_advanced(${NAME}_LIBRARY)
    if(NOT ${NAME}_LIBRARY)
      list(APPEND missing "the library lib${ARG_LIBRARY}")
    endif()
  endif()

  if(choice STREQUAL standin OR (choice STREQUAL auto AND missing))
    add_subdirectory(${PROJECT_SOURCE_DIR}/standin/${target})
    set(source "stand-in")
  elseif(missing)
    list(JOIN missing " and " missing)
    message(FATAL_ERROR "ZORVAD_${NAME}=system, but ${missing} cannot be found (CMAKE_PREFIX_PATH "
      "adds places to look in)")
  else()
    add_library(dep_${target} INTERFACE)
    set(source "system")
    if(ARG_HEADER)
      target_include_directories(dep_${target} SYSTEM INTERFACE ${${NAME}_INCLUDE_DIR})
      string(APPEND source ", ${${NAME}_INCLUDE_DIR}/${ARG_HEADER}")
    endif()
    if(ARG_LIBRARY)
      target_link_libraries(dep_${target} INTERFACE ${${NAME}_LIBRARY})
      string(APPEND source ", ${${NAME}_LIBRARY}")
    endif()
  endif()
  add_library(dep::${target} ALIAS dep_${target})
  string(APPEND dependency_summary "\n  ${target}: ${source}")
  set(dependency_summary "${dependency_summary}" PARENT_SCOPE)
endfunction()

find_dependency_pair(UBOX ubox HEADER libubox/uloop.h LIBRARY ubox)
find_dependency_pair(TERMBOX termbox HEADER termbox2.h)
find_dependency_pair(ARGTABLE argtable HEADER argtable3.h LIBRARY argtable3)
# libtrell ships no header: dep/trell.h declares its calls.
find_dependency_pair(TRELL trell LIBRARY trell)

find_path(VTERM_INCLUDE_DIR vterm.h REQUIRED)
find_library(VTERM_LIBRARY vterm REQUIRED)
mark_as_advanced(VTERM_INCLUDE_DIR VTERM_LIBRARY)
add_library(dep_vterm INTERFACE)
target_include_directories(dep_vterm SYSTEM INTERFACE ${VTERM_INCLUDE_DIR})
target_link_libraries(dep_vterm INTERFACE ${VTERM_LIBRARY})
add_library(dep::vterm ALIAS dep_vterm)
string(APPEND dependency_summary "\n  vterm: system, ${VTERM_LIBRARY}")

message(STATUS "Libraries:${dependency_summary}")
