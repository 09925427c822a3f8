# GoogleTest for Windows, of the sources that the distribution ships: its library is for this machine alone.
if(BUILD_TESTING)
  set(QUORVANE_GOOGLETEST_SOURCE /usr/src/googletest CACHE PATH "The sources of GoogleTest and GoogleMock")

  function(quorvane_googletest_library name folder source)
    set(root ${QUORVANE_GOOGLETEST_SOURCE}/${folder})
    add_library(${name} STATIC ${root}/src/${source})
    add_library(GTest::${name} ALIAS ${name})
    target_include_directories(${name} SYSTEM PUBLIC ${root}/include PRIVATE ${root})
    target_link_libraries(${name} PUBLIC ${ARGN})
  endfunction()

  quorvane_googletest_library(gtest googletest gtest-all.cc)
  quorvane_googletest_library(gtest_main googletest gtest_main.cc gtest)
  quorvane_googletest_library(gmock googlemock gmock-all.cc gtest)
endif()
