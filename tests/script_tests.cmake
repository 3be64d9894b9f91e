# Tests that are scripts: the documents, the recipes for many core files, and the packages.
find_package(Python3 3.11 COMPONENTS Interpreter REQUIRED)

function(add_docs_test name)
  add_test(NAME Docs.${name}
    COMMAND Python3::Interpreter -B ${CMAKE_CURRENT_SOURCE_DIR}/check_docs.py ${ARGN}
            --talvex $<TARGET_FILE:talvex> --sample $<TARGET_FILE:talvex-sample>
            --llvm-objdump ${TALVEX_LLVM_OBJDUMP})
  set_tests_properties(Docs.${name} PROPERTIES TIMEOUT 120)
endfunction()

add_docs_test(Options options)
add_docs_test(Links links)
add_docs_test(Excerpts excerpts)

add_test(NAME Batch
  COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/batch_test $<TARGET_FILE:talvex>
          $<TARGET_FILE:talvex-sample>)
set_tests_properties(Batch PROPERTIES TIMEOUT 120)

# It builds talvex twice by itself, whatever is configured here: once is enough for all presets.
if(CMAKE_BUILD_TYPE STREQUAL "Release" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  add_test(NAME Package
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/package_test $<TARGET_FILE:talvex-sample>
            ${TALVEX_LLVM_OBJDUMP})
  set_tests_properties(Package PROPERTIES TIMEOUT 3600)
endif()
