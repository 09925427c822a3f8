# quorvane_type_library(RC IDL): makes a type library NAME.tlb of an interface definition NAME.idl, for a resource script
# of the same folder's targets, which finds it by its name. The definitions that IDL imports, and the type library of
# OLE automation, are Wine's.
find_program(QUORVANE_WIDL x86_64-w64-mingw32-widl REQUIRED)
find_path(QUORVANE_IDL_FOLDER oaidl.idl PATHS /usr/include/wine/wine/windows REQUIRED NO_CMAKE_FIND_ROOT_PATH)
find_path(QUORVANE_STDOLE_FOLDER stdole2.tlb PATHS /usr/lib/x86_64-linux-gnu/wine/x86_64-windows REQUIRED
          NO_CMAKE_FIND_ROOT_PATH)

function(quorvane_type_library script definition)
  get_filename_component(name ${definition} NAME_WE)
  set(library ${CMAKE_CURRENT_BINARY_DIR}/${name}.tlb)
  add_custom_command(OUTPUT ${library}
    COMMAND ${QUORVANE_WIDL} -m64 --nostdinc -I ${QUORVANE_IDL_FOLDER} -L ${QUORVANE_STDOLE_FOLDER} -t -o ${library}
            ${definition}
    DEPENDS ${definition}
    COMMENT "Making the type library ${name}.tlb"
    VERBATIM)
  set_property(SOURCE ${script} APPEND PROPERTY OBJECT_DEPENDS ${library})
  set_property(SOURCE ${script} APPEND PROPERTY INCLUDE_DIRECTORIES ${CMAKE_CURRENT_BINARY_DIR})
endfunction()
