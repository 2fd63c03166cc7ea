# Locates Intel oneMKL (LP64 interface, GNU OpenMP threading) and ARPACK-NG as Debian installs them
# and exposes them as the interface targets vqmath_mkl and vqmath_arpack.

find_path(VQMATH_MKL_INCLUDE_DIR mkl.h PATHS /usr/include/mkl /opt/intel/oneapi/mkl/latest/include)
foreach(lib mkl_intel_lp64 mkl_gnu_thread mkl_core)
  find_library(VQMATH_${lib}_LIBRARY ${lib} PATHS /usr/lib/x86_64-linux-gnu /opt/intel/oneapi/mkl/latest/lib/intel64)
  if(NOT VQMATH_${lib}_LIBRARY)
    message(FATAL_ERROR "Intel oneMKL library ${lib} not found: run scripts/install-deps.sh")
  endif()
endforeach()
if(NOT VQMATH_MKL_INCLUDE_DIR)
  message(FATAL_ERROR "Intel oneMKL headers (mkl.h) not found: run scripts/install-deps.sh")
endif()

add_library(vqmath_mkl INTERFACE)
target_include_directories(vqmath_mkl INTERFACE $<BUILD_INTERFACE:${VQMATH_MKL_INCLUDE_DIR}>)
# MKL's three layers refer to each other; the link group keeps the order from mattering.
target_link_libraries(vqmath_mkl INTERFACE
  $<BUILD_INTERFACE:-Wl,--no-as-needed -Wl,--start-group ${VQMATH_mkl_intel_lp64_LIBRARY} ${VQMATH_mkl_gnu_thread_LIBRARY} ${VQMATH_mkl_core_LIBRARY} -Wl,--end-group>
  $<INSTALL_INTERFACE:-Wl,--no-as-needed -lmkl_intel_lp64 -lmkl_gnu_thread -lmkl_core>
  gomp pthread m dl)

find_library(VQMATH_ARPACK_LIBRARY NAMES arpack PATHS /usr/lib/x86_64-linux-gnu)
if(NOT VQMATH_ARPACK_LIBRARY)
  message(FATAL_ERROR "ARPACK-NG not found: run scripts/install-deps.sh")
endif()
add_library(vqmath_arpack INTERFACE)
target_link_libraries(vqmath_arpack INTERFACE $<BUILD_INTERFACE:${VQMATH_ARPACK_LIBRARY}>)
