# libsodium: the distribution's library. For Windows it is built of the distribution's source package, which
# cmake/sodium_source.sh fetches.
if(NOT TARGET quorvane_sodium)
  if(WIN32)
    set(QUORVANE_SODIUM_SOURCE ${PROJECT_SOURCE_DIR}/build/sodium-source CACHE PATH "Where libsodium's sources lie")
    set(root ${QUORVANE_SODIUM_SOURCE}/libsodium)
    if(NOT EXISTS ${root}/include/sodium/version.h)
      message(FATAL_ERROR "No libsodium in ${QUORVANE_SODIUM_SOURCE}: run cmake/sodium_source.sh ${QUORVANE_SODIUM_SOURCE}")
    endif()
    file(GLOB_RECURSE sodium_sources ${root}/*.c)
    add_library(quorvane_sodium STATIC ${sodium_sources})
    target_include_directories(quorvane_sodium SYSTEM PUBLIC ${root}/include PRIVATE ${root}/include/sodium)
    target_compile_definitions(quorvane_sodium PUBLIC SODIUM_STATIC=1
                               PRIVATE CONFIGURED=1 NATIVE_LITTLE_ENDIAN=1)
    # Not our code: our warnings are not for it, and its files have names in common.
    set_target_properties(quorvane_sodium PROPERTIES COMPILE_OPTIONS -w UNITY_BUILD OFF)
  else()
    find_package(PkgConfig REQUIRED)
    pkg_check_modules(sodium REQUIRED IMPORTED_TARGET GLOBAL libsodium)
    add_library(quorvane_sodium INTERFACE IMPORTED GLOBAL)
    target_link_libraries(quorvane_sodium INTERFACE PkgConfig::sodium)
  endif()
endif()
