# SQLite: the distribution's library. For Windows it is built of the distribution's source package, which
# cmake/sqlite_source.sh fetches and makes one source file of.
if(NOT TARGET quorvane_sqlite)
  if(WIN32)
    set(QUORVANE_SQLITE_SOURCE ${PROJECT_SOURCE_DIR}/build/sqlite-source CACHE PATH "Where sqlite3.c lies")
    if(NOT EXISTS ${QUORVANE_SQLITE_SOURCE}/sqlite3.c)
      message(FATAL_ERROR "No sqlite3.c in ${QUORVANE_SQLITE_SOURCE}: run cmake/sqlite_source.sh ${QUORVANE_SQLITE_SOURCE}")
    endif()
    add_library(quorvane_sqlite STATIC ${QUORVANE_SQLITE_SOURCE}/sqlite3.c)
    target_include_directories(quorvane_sqlite SYSTEM PUBLIC ${QUORVANE_SQLITE_SOURCE})
    target_compile_definitions(quorvane_sqlite PRIVATE SQLITE_THREADSAFE=1 SQLITE_ENABLE_COLUMN_METADATA SQLITE_OMIT_LOAD_EXTENSION)
    # Not our code: our warnings are not for it.
    set_property(TARGET quorvane_sqlite PROPERTY COMPILE_OPTIONS -w)
  else()
    add_library(quorvane_sqlite INTERFACE IMPORTED GLOBAL)
    find_package(SQLite3 REQUIRED)
    target_link_libraries(quorvane_sqlite INTERFACE SQLite::SQLite3)
  endif()
endif()
