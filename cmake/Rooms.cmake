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

# What all sources of tests are compiled with: the headers of a target made by sonivo_test_headers can be used by others
# only if both are compiled alike.
function(sonivo_test_options target)
  target_link_libraries(${target} PRIVATE sonivo_warnings GTest::gmock GTest::gtest_main)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Optimised, g++ 12 sees accesses beyond the end of vectors and strings where there are none.
    target_compile_options(${target} PRIVATE -Wno-array-bounds -Wno-stringop-overflow -Wno-stringop-overread
                           -Wno-restrict)
  endif()
  if(SONIVO_SANITIZE)  # what is tested is optimised; the tests themselves take most of the time to compile
    target_compile_options(${target} PRIVATE -O0)
  elseif(CMAKE_BUILD_TYPE STREQUAL "Release")
    target_compile_options(${target} PRIVATE -O1)
  endif()
  # Some tests have to know that a sanitizer watches.
  if(SONIVO_SANITIZE MATCHES "address")
    target_compile_definitions(${target} PRIVATE SONIVO_ASAN)
  elseif(SONIVO_SANITIZE MATCHES "thread")
    target_compile_definitions(${target} PRIVATE SONIVO_TSAN)
  endif()
  if(SONIVO_SANITIZE MATCHES "undefined")  # looks at what is tested; in the tests it would take as long again to compile
    target_compile_options(${target} PRIVATE -fno-sanitize=undefined)
  endif()
endfunction()

# sonivo_test_headers(<target> <headers>): headers that are compiled once for all programs of tests that name them.
function(sonivo_test_headers target)
  set(source "${CMAKE_CURRENT_BINARY_DIR}/${target}.cpp")
  file(CONFIGURE OUTPUT "${source}" CONTENT "")
  add_library(${target} OBJECT "${source}")
  sonivo_test_options(${target})
  target_precompile_headers(${target} PRIVATE ${ARGN})
endfunction()

option(SONIVO_TESTS_IN_PARTS "Run each program of tests in four parts, not case by case" OFF)

# sonivo_tests(<target> <folder> [TOGETHER] [ALONE] [HEADERS <precompiled>] [DEPENDS <targets>] [LABELS <labels>]
# [OPTIMISED <sources>]): one GoogleTest program of all sources in the folder. Target tests_<label> builds all programs
# with that label. TOGETHER: no two sources name a helper alike, so that several may be compiled at a time. OPTIMISED:
# reckon references that take longer than it takes to compile them. ALONE: what else runs would be heard in the audio of
# a real server.
function(sonivo_tests target folder)
  cmake_parse_arguments(TESTS "TOGETHER;ALONE" "HEADERS" "DEPENDS;LABELS;OPTIMISED" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS "${folder}/*.cpp")
  if(NOT sources)
    return()
  endif()
  add_executable(${target} ${sources})
  sonivo_test_options(${target})
  target_link_libraries(${target} PRIVATE ${TESTS_DEPENDS})
  if(NOT TESTS_HEADERS)
    set(TESTS_HEADERS test_headers)
  endif()
  target_precompile_headers(${target} REUSE_FROM ${TESTS_HEADERS})
  if(TESTS_TOGETHER)
    set_target_properties(${target} PROPERTIES UNITY_BUILD_BATCH_SIZE 5)
  else()
    set_target_properties(${target} PROPERTIES UNITY_BUILD OFF)
  endif()
  if(SONIVO_SANITIZE AND TESTS_OPTIMISED)
    list(TRANSFORM TESTS_OPTIMISED PREPEND "${folder}/")
    set_source_files_properties(${TESTS_OPTIMISED} PROPERTIES COMPILE_OPTIONS -O1 SKIP_PRECOMPILE_HEADERS ON
                                SKIP_UNITY_BUILD_INCLUSION ON)
  endif()
  set(alone FALSE)
  if(TESTS_ALONE)
    set(alone TRUE)
  endif()
  # One word, since a list of labels does not survive the discovery; ctest -L finds its parts.
  list(JOIN TESTS_LABELS "+" labels)
  if(SONIVO_TESTS_IN_PARTS)
    foreach(part RANGE 3)
      add_test(NAME ${target}.${part} COMMAND ${target} --gtest_brief=1)
      set_tests_properties(${target}.${part} PROPERTIES TIMEOUT 600 RUN_SERIAL ${alone} LABELS "${labels}"
                           ENVIRONMENT "GTEST_TOTAL_SHARDS=4;GTEST_SHARD_INDEX=${part}")
    endforeach()
  else()
    gtest_discover_tests(${target} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120 RUN_SERIAL ${alone}
                           LABELS "${labels}")
  endif()
  foreach(label IN LISTS TESTS_LABELS)
    if(NOT TARGET tests_${label})
      add_custom_target(tests_${label})
    endif()
    add_dependencies(tests_${label} ${target})
  endforeach()
endfunction()
