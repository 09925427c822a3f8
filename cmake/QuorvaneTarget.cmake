# One target a folder. A target sees the headers of its own folder and of the targets that it links,
# and nothing else: each folder's headers are reached through a directory of their own that holds
# one link to the folder, so that an include which the layering forbids doesn't compile.
#
#   quorvane_target(NAME [SHARED] [THREADS] [LINKS target...] [TEST_LINKS target...] [EXCLUDE regex])
#
# makes `qv_NAME` of the folder's sources (not of its sub-folders'), and `qv_NAME_test` of its
# *_test.cpp. A source named *_win.cpp belongs to Windows alone, *_posix.cpp to everything else; so do
# tests named *_win_test.cpp and *_posix_test.cpp (docs/windows.md tells why each of these can't run there).
# A target that SHAREs state with other modules of a process is a shared library off Windows. Tests
# of a folder marked THREADS run under the thread sanitizer too.
function(quorvane_export_headers target)
  file(RELATIVE_PATH folder ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
  set(root ${PROJECT_BINARY_DIR}/headers/${target})
  get_filename_component(parent ${root}/${folder} DIRECTORY)
  file(MAKE_DIRECTORY ${parent})
  if(NOT EXISTS ${root}/${folder})
    file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR} ${root}/${folder} SYMBOLIC)
  endif()
  target_include_directories(${target} ${ARGN} $<BUILD_INTERFACE:${root}>)
endfunction()

function(quorvane_folder_sources out_sources out_tests)
  file(GLOB sources CONFIGURE_DEPENDS *.cpp)
  if(WIN32)
    list(FILTER sources EXCLUDE REGEX "_posix(_test)?\\.cpp$")
  else()
    list(FILTER sources EXCLUDE REGEX "_win(_test)?\\.cpp$")
  endif()
  set(tests ${sources})
  list(FILTER tests INCLUDE REGEX "_test\\.cpp$")
  list(FILTER sources EXCLUDE REGEX "_test\\.cpp$")
  set(${out_sources} ${sources} PARENT_SCOPE)
  set(${out_tests} ${tests} PARENT_SCOPE)
endfunction()

# Where a program that was built here finds the root directory of this machine when it runs.
set(QUORVANE_RUN_ROOT "")
if(WIN32 AND CMAKE_CROSSCOMPILING)
  set(QUORVANE_RUN_ROOT "Z:")
endif()

# The test programs that run under Wine so far (docs/windows.md); the others are built only when asked for.
set(QUORVANE_WINDOWS_TESTS
  "^qv_(com|bytes|collections|cfb|cfb_threads|clock|desktop|event|file|module|registry|sqlite)_test$"
  "^qv_(trace|storeaccess|persist|pool|context|options|change|items|monitor|folders|transfer|session|registration)_test$"
  "^qv_session_(logon|memory)_test$"
  "^qv_(store|store_[a-z]+)_test$"
  "^qv_integration_(apartment|database_failures|display|find_item|leftovers|logon|msg_stores|notifications|receive_jobs|resend|road|session_life|sessions)_test$"
  "^late_bound_(entry_points|object_model|calls|sharing|resend|table)_test$"
  "^qv_host_(base|service|report|deflate|exchange|mail|mailbox|sharing)_test$"
  "^qv_windows_")
list(JOIN QUORVANE_WINDOWS_TESTS "|" QUORVANE_WINDOWS_TESTS)
# These log on to the engine, which has an event by a name that all processes of the user's share.
set(QUORVANE_WINDOWS_LOGON_TESTS "^qv_(integration|session)_|^qv_host_sharing_test$|^late_bound_(calls|sharing|resend)_")

# How many of ctest's places a test takes, of which there are two for each processor: what tests the program waits for
# it nine tenths of its time.
set(QUORVANE_COMPUTING_TEST 2)
set(QUORVANE_WAITING_TEST 1)

function(quorvane_test name)
  cmake_parse_arguments(arg "" "" "SOURCES;LINKS;LABELS" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LINKS} qv_testing GTest::gtest GTest::gmock GTest::gtest_main)
  # Of a test program what it tests is optimised, and not the tests: they are compiled in half the time.
  target_compile_options(${name} PRIVATE -O0)
  if(WIN32)
    if(NOT name MATCHES "${QUORVANE_WINDOWS_TESTS}")
      set_target_properties(${name} PROPERTIES EXCLUDE_FROM_ALL ON)
      return()
    endif()
    list(APPEND arg_LABELS windows)
    list(REMOVE_DUPLICATES arg_LABELS)
  endif()
  add_test(NAME ${name} COMMAND ${name}
           --gtest_output=xml:${QUORVANE_RUN_ROOT}${PROJECT_BINARY_DIR}/results/${name}.xml)
  set(places ${QUORVANE_COMPUTING_TEST})
  if("program" IN_LIST arg_LABELS)
    set(places ${QUORVANE_WAITING_TEST})
  endif()
  set_tests_properties(${name} PROPERTIES TIMEOUT 900 LABELS "${arg_LABELS}" PROCESSORS ${places})
  if(WIN32 AND name MATCHES "${QUORVANE_WINDOWS_LOGON_TESTS}")
    set_property(TEST ${name} APPEND PROPERTY RESOURCE_LOCK item_submit_event)
  endif()
  # All tests of a label build as one target: tests_unit, tests_threads.
  foreach(label IN LISTS arg_LABELS)
    if(NOT TARGET tests_${label})
      add_custom_target(tests_${label})
    endif()
    add_dependencies(tests_${label} ${name})
  endforeach()
endfunction()

function(quorvane_target name)
  cmake_parse_arguments(arg "SHARED;THREADS" "EXCLUDE" "LINKS;TEST_LINKS" ${ARGN})
  quorvane_folder_sources(sources tests)
  if(arg_EXCLUDE)
    list(FILTER sources EXCLUDE REGEX "${arg_EXCLUDE}")
    list(FILTER tests EXCLUDE REGEX "${arg_EXCLUDE}")
  endif()
  set(target qv_${name})
  if(sources)
    set(kind STATIC)
    if(arg_SHARED AND NOT WIN32)
      set(kind SHARED)
    endif()
    add_library(${target} ${kind} ${sources})
    quorvane_export_headers(${target} PUBLIC)
    target_link_libraries(${target} PUBLIC ${arg_LINKS} Threads::Threads)
  else()
    add_library(${target} INTERFACE)
    quorvane_export_headers(${target} INTERFACE)
    target_link_libraries(${target} INTERFACE ${arg_LINKS})
  endif()
  if(tests AND BUILD_TESTING)
    set(labels unit)
    if(arg_THREADS)
      list(APPEND labels threads)
    endif()
    quorvane_test(${target}_test SOURCES ${tests} LINKS ${target} ${arg_TEST_LINKS} LABELS ${labels})
  endif()
endfunction()

# quorvane_tight_loops(NAME): a call passes half a dozen layers of a few lines each, which are meant to be inlined into
# one another.
function(quorvane_tight_loops name)
  set(target qv_${name})
  if(NOT TARGET ${target} OR WIN32 OR NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    return()
  endif()
  target_compile_options(${target} PRIVATE -fno-semantic-interposition $<$<CONFIG:Release>:-O3>)
  # What is copied are pieces of a few words to a few hundred bytes, for which the processor's own instruction for
  # copying takes longer than the C library does.
  if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64")
    set(pieces unrolled_loop:256:noalign,libcall:-1:noalign)
    target_compile_options(${target} PRIVATE -mmemcpy-strategy=${pieces} -mmemset-strategy=${pieces})
  endif()
  set_target_properties(${target} PROPERTIES UNITY_BUILD_BATCH_SIZE 0)
endfunction()
