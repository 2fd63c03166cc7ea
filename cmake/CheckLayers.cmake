# Fails when a library folder includes a header from a folder above it. The folders, from the
# bottom up: core (process-wide state), dense, sparse, eigen, api (the flat C layer). A folder
# may include its own headers and those of folders below it; only api sees the flat header
# vqmath.h, and no library folder sees tools/ or models/.
#
# Run: cmake -DSOURCE_DIR=<source tree> -P CheckLayers.cmake
if(NOT SOURCE_DIR)
  message(FATAL_ERROR "CheckLayers: SOURCE_DIR not given")
endif()

set(layers core dense sparse eigen api)
set(forbidden_core "dense/|sparse/|eigen/|api/|tools/|models/|vqmath\\.h")
set(forbidden_dense "sparse/|eigen/|api/|tools/|models/|vqmath\\.h")
set(forbidden_sparse "eigen/|api/|tools/|models/|vqmath\\.h")
set(forbidden_eigen "api/|tools/|models/|vqmath\\.h")
set(forbidden_api "tools/|models/")

set(violations "")
foreach(layer ${layers})
  file(GLOB_RECURSE files ${SOURCE_DIR}/${layer}/*.h ${SOURCE_DIR}/${layer}/*.cpp)
  foreach(file ${files})
    file(STRINGS ${file} includes REGEX "^[ \t]*#[ \t]*include[ \t]*[\"<]")
    foreach(line ${includes})
      string(REGEX REPLACE "^[ \t]*#[ \t]*include[ \t]*[\"<]([^\">]*)[\">].*" "\\1" header "${line}")
      if(header MATCHES "^(${forbidden_${layer}})")
        file(RELATIVE_PATH name ${SOURCE_DIR} ${file})
        list(APPEND violations "${name} includes ${header}")
      endif()
    endforeach()
  endforeach()
endforeach()

if(violations)
  list(JOIN violations "\n  " text)
  message(FATAL_ERROR "Includes that point up the folder layers:\n  ${text}")
endif()
message(STATUS "Every include points down the folder layers (core, dense, sparse, eigen, api)")
