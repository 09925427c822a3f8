# utf8proc: the distribution's library. For Windows it is built of the distribution's source package, which
# cmake/utf8proc_source.sh fetches.
if(NOT TARGET quorvane_utf8proc)
  if(WIN32)
    set(QUORVANE_UTF8PROC_SOURCE ${PROJECT_SOURCE_DIR}/build/utf8proc-source CACHE PATH "Where utf8proc.c lies")
    if(NOT EXISTS ${QUORVANE_UTF8PROC_SOURCE}/utf8proc.h)
      message(FATAL_ERROR "No utf8proc in ${QUORVANE_UTF8PROC_SOURCE}: run cmake/utf8proc_source.sh ${QUORVANE_UTF8PROC_SOURCE}")
    endif()
    # It includes utf8proc_data.c, which lies beside it.
    add_library(quorvane_utf8proc STATIC ${QUORVANE_UTF8PROC_SOURCE}/utf8proc.c)
    target_include_directories(quorvane_utf8proc SYSTEM PUBLIC ${QUORVANE_UTF8PROC_SOURCE})
    target_compile_definitions(quorvane_utf8proc PUBLIC UTF8PROC_STATIC)
    # Not our code: our warnings are not for it.
    set_target_properties(quorvane_utf8proc PROPERTIES COMPILE_OPTIONS -w UNITY_BUILD OFF)
  else()
    find_package(PkgConfig REQUIRED)
    pkg_check_modules(utf8proc REQUIRED IMPORTED_TARGET GLOBAL libutf8proc)
    add_library(quorvane_utf8proc INTERFACE IMPORTED GLOBAL)
    target_link_libraries(quorvane_utf8proc INTERFACE PkgConfig::utf8proc)
  endif()
endif()
