# Endurance (hundreds of analyses in one process, memory and scratch files compared after a
# warm-up): one ctest labelled "endurance", so that a slow build (sanitizers) can leave it out
# with ctest -LE endurance.
add_executable(test_eigen_Endurance ${CMAKE_CURRENT_SOURCE_DIR}/eigen/endurance/Endurance.cpp)
target_compile_options(test_eigen_Endurance PRIVATE -Wall -Wextra -Wno-unused-parameter)
target_link_libraries(test_eigen_Endurance PRIVATE vqmath_test_support)
add_test(NAME eigen.Endurance COMMAND test_eigen_Endurance WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})
set_tests_properties(eigen.Endurance PROPERTIES LABELS endurance TIMEOUT 900
                     ENVIRONMENT "OMP_NUM_THREADS=1;MKL_NUM_THREADS=1")
