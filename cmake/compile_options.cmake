# What every target of the project is compiled with: C++20, warnings as errors, and the sanitizers
# that TALVEX_SANITIZE names.
add_library(talvex_options INTERFACE)
target_compile_features(talvex_options INTERFACE cxx_std_20)
target_compile_options(talvex_options INTERFACE
  -Wall -Wextra -Wconversion -Wshadow -Werror)
set(CMAKE_CXX_EXTENSIONS OFF)

if(TALVEX_SANITIZE)
  target_compile_options(talvex_options INTERFACE
    -fsanitize=${TALVEX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(talvex_options INTERFACE -fsanitize=${TALVEX_SANITIZE})
endif()
