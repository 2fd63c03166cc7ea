# The vqsolve tests run the program itself: they learn its path from VQSOLVE_PATH and are built
# after it.
if(TARGET vqsolve)
  file(GLOB VQSOLVE_TEST_SOURCES CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/tools/*.cpp)
  foreach(src ${VQSOLVE_TEST_SOURCES})
    get_filename_component(name ${src} NAME_WE)
    target_compile_definitions(test_tools_${name} PRIVATE VQSOLVE_PATH="$<TARGET_FILE:vqsolve>")
    add_dependencies(test_tools_${name} vqsolve)
  endforeach()
endif()
