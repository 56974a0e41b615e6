# A room is a folder with one library target. Its headers are reached as "<prefix>/<name>.h" through an include folder
# of its own, made of links, so that a file sees the headers of the rooms it links and of no others.

# sonivo_room(<target> <folder> <prefix> [DEPENDS <targets of ours>] [LIBRARIES <others>])
function(sonivo_room target folder prefix)
  cmake_parse_arguments(ROOM "" "" "DEPENDS;LIBRARIES" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS "${folder}/*.cpp")
  file(GLOB headers CONFIGURE_DEPENDS RELATIVE "${folder}" "${folder}/*.h")

  set(root "${CMAKE_BINARY_DIR}/rooms/${target}")
  file(REMOVE_RECURSE "${root}")
  file(MAKE_DIRECTORY "${root}/${prefix}")
  foreach(header IN LISTS headers)
    file(CREATE_LINK "${folder}/${header}" "${root}/${prefix}/${header}" SYMBOLIC)
  endforeach()

  if(sources)
    add_library(${target} STATIC ${sources})
    set(scope PUBLIC)
    target_link_libraries(${target} PRIVATE sonivo_warnings)
  else()
    add_library(${target} INTERFACE)
    set(scope INTERFACE)
  endif()
  target_include_directories(${target} ${scope} "${root}")
  target_link_libraries(${target} ${scope} ${ROOM_DEPENDS} ${ROOM_LIBRARIES})
endfunction()

# sonivo_tests(<target> <folder> [DEPENDS <targets>] [LABELS <labels>]): one GoogleTest program of all sources in the
# folder. Target tests_<label> builds all programs with that label.
function(sonivo_tests target folder)
  cmake_parse_arguments(TESTS "" "" "DEPENDS;LABELS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS "${folder}/*.cpp")
  if(NOT sources)
    return()
  endif()
  add_executable(${target} ${sources})
  target_link_libraries(${target} PRIVATE sonivo_warnings ${TESTS_DEPENDS} GTest::gmock GTest::gtest_main)
  # Optimised, g++ 12 sees writes beyond the end of vectors where there are none.
  target_compile_options(${target} PRIVATE $<$<AND:$<CXX_COMPILER_ID:GNU>,$<CONFIG:Release>>:-Wno-stringop-overflow>)
  target_precompile_headers(${target} PRIVATE <gtest/gtest.h> <gmock/gmock.h>)
  gtest_discover_tests(${target} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120 LABELS "${TESTS_LABELS}")
  foreach(label IN LISTS TESTS_LABELS)
    if(NOT TARGET tests_${label})
      add_custom_target(tests_${label})
    endif()
    add_dependencies(tests_${label} ${target})
  endforeach()
endfunction()
