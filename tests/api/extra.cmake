# The C interface stays honest: a C99 program, compiled as C with pedantic warnings as errors,
# sees only the public header (as installed: <vqmath.h>) and the shared library.
add_executable(test_api_c_interface ${CMAKE_CURRENT_SOURCE_DIR}/api/c_interface.c)
set_target_properties(test_api_c_interface PROPERTIES C_STANDARD 99 C_STANDARD_REQUIRED ON C_EXTENSIONS OFF)
target_compile_options(test_api_c_interface PRIVATE -Wall -Wextra -pedantic -Werror)
target_include_directories(test_api_c_interface PRIVATE ${PROJECT_SOURCE_DIR}/api)
target_link_libraries(test_api_c_interface PRIVATE vqmath)
add_test(NAME api.c_interface COMMAND test_api_c_interface)

# The public header also compiles as C++ on its own.
add_library(test_api_header_cxx OBJECT ${CMAKE_CURRENT_SOURCE_DIR}/api/header_cxx.cc)
target_include_directories(test_api_header_cxx PRIVATE ${PROJECT_SOURCE_DIR}/api)
target_compile_options(test_api_header_cxx PRIVATE -Wall -Wextra -pedantic -Werror)
