# The libraries of the program that are headers alone: CLI11 and JSON. Their packages are the same for every target
# system, but when one is compiled for that isn't this, the headers beside them are this system's: each of the two is
# then reached through a directory that holds a link to it and nothing else.
if(WIN32)
  function(quorvane_header_library target folder header)
    find_path(QUORVANE_${folder}_FOLDER ${header} PATHS /usr/include REQUIRED NO_CMAKE_FIND_ROOT_PATH)
    set(root ${PROJECT_BINARY_DIR}/headers/${folder})
    file(MAKE_DIRECTORY ${root})
    file(CREATE_LINK ${QUORVANE_${folder}_FOLDER}/${folder} ${root}/${folder} SYMBOLIC)
    add_library(${target} INTERFACE IMPORTED GLOBAL)
    target_include_directories(${target} SYSTEM INTERFACE ${root})
  endfunction()

  if(NOT TARGET CLI11::CLI11)
    quorvane_header_library(CLI11::CLI11 CLI CLI/CLI.hpp)
    quorvane_header_library(nlohmann_json::nlohmann_json nlohmann nlohmann/json.hpp)
  endif()
else()
  find_package(CLI11 REQUIRED)
  find_package(nlohmann_json REQUIRED)
endif()
