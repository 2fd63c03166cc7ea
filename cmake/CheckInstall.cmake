# Installs the build into a staging prefix and checks what a host gets there: every installed
# header compiles on its own as C++17, the pkg-config file names that prefix, and a small C++
# host finds the library with find_package(vqmath), builds and runs.
#
# Run: cmake -DBUILD_DIR=<build tree> -DSTAGING=<empty folder> -DHOST_SOURCE=<host project>
#            -DCXX=<C++ compiler> -P CheckInstall.cmake
foreach(var BUILD_DIR STAGING HOST_SOURCE CXX)
  if(NOT ${var})
    message(FATAL_ERROR "CheckInstall: ${var} not given")
  endif()
endforeach()

file(REMOVE_RECURSE ${STAGING})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${STAGING}/prefix
  RESULT_VARIABLE rc OUTPUT_QUIET ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "cmake --install failed: ${err}")
endif()
set(prefix ${STAGING}/prefix)

# Every header alone.
file(GLOB_RECURSE headers ${prefix}/include/*.h)
list(LENGTH headers total)
if(total LESS 10)
  message(FATAL_ERROR "only ${total} headers installed under ${prefix}/include")
endif()
set(failed "")
# The MPI library's header needs MPI's own: its include folders come from the MPI compiler wrapper.
find_program(MPICC mpicc)
set(mpi_flags "")
if(MPICC)
  execute_process(COMMAND ${MPICC} --showme:incdirs OUTPUT_VARIABLE dirs OUTPUT_STRIP_TRAILING_WHITESPACE
                  RESULT_VARIABLE mpi_rc ERROR_QUIET)
  if(mpi_rc EQUAL 0)
    separate_arguments(dirs)
    foreach(d ${dirs})
      list(APPEND mpi_flags -I${d})
    endforeach()
  endif()
endif()
foreach(header ${headers})
  get_filename_component(base ${header} NAME)
  set(extra "")
  if(base STREQUAL "vqmath_mpi.h")
    if(NOT MPICC)
      continue()
    endif()
    set(extra ${mpi_flags})
  endif()
  execute_process(COMMAND ${CXX} -std=c++17 -fsyntax-only -Wall -I${prefix}/include
                          -I${prefix}/include/vqmath ${extra} -x c++ ${header}
    RESULT_VARIABLE rc ERROR_VARIABLE err OUTPUT_QUIET)
  if(NOT rc EQUAL 0)
    file(RELATIVE_PATH name ${prefix}/include ${header})
    string(APPEND failed "\n${name}:\n${err}")
  endif()
endforeach()
if(failed)
  message(FATAL_ERROR "installed headers that do not compile on their own:${failed}")
endif()

# pkg-config: the prefix the files were installed to.
file(GLOB_RECURSE pcfiles ${prefix}/*/vqmath.pc)
if(NOT pcfiles)
  message(FATAL_ERROR "no vqmath.pc installed")
endif()
list(GET pcfiles 0 pcfile)
find_program(PKG_CONFIG pkg-config)
if(PKG_CONFIG)
  get_filename_component(pcdir ${pcfile} DIRECTORY)
  execute_process(COMMAND ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pcdir} ${PKG_CONFIG} --cflags vqmath
    OUTPUT_VARIABLE cflags OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE rc)
  string(REGEX MATCH "-I([^ ]*)" first "${cflags}")
  get_filename_component(included "${CMAKE_MATCH_1}" REALPATH)
  get_filename_component(expected "${prefix}/include" REALPATH)
  if(NOT rc EQUAL 0 OR NOT included STREQUAL expected)
    message(FATAL_ERROR "pkg-config --cflags vqmath gives '${cflags}', not ${expected}")
  endif()
endif()

# A C++ host with find_package(vqmath).
execute_process(COMMAND ${CMAKE_COMMAND} -S ${HOST_SOURCE} -B ${STAGING}/host
                        -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX}
                        -DCMAKE_BUILD_RPATH=${prefix}/lib
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "the host project does not configure:\n${out}\n${err}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${STAGING}/host
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "the host project does not build:\n${out}\n${err}")
endif()
file(GLOB_RECURSE libdirs LIST_DIRECTORIES false ${prefix}/libvqmath.so)
list(GET libdirs 0 library)
get_filename_component(libdir ${library} DIRECTORY)
execute_process(COMMAND ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${libdir} ${STAGING}/host/host
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "the host program failed (${rc}):\n${out}\n${err}")
endif()
message(STATUS "${total} installed headers compile alone; ${out}")
