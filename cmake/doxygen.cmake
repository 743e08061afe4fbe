# The target "doc": the reference of what a host may include, as HTML in the build tree.
find_program(DOXYGEN doxygen)
file(GLOB KEELSTONE_DOC_INPUT CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/keelstone/*.h)
list(PREPEND KEELSTONE_DOC_INPUT ${PROJECT_SOURCE_DIR}/docs/reference.md)
list(JOIN KEELSTONE_DOC_INPUT " " KEELSTONE_DOC_INPUT)
configure_file(cmake/Doxyfile.in Doxyfile @ONLY)
set(make_reference Python3::Interpreter ${PROJECT_SOURCE_DIR}/cmake/doxygen.py
                   ${PROJECT_BINARY_DIR}/Doxyfile)
add_custom_target(doc COMMAND ${make_reference} VERBATIM
                  COMMENT "Reference in ${PROJECT_BINARY_DIR}/doc/html")
if(KEELSTONE_TESTS AND DOXYGEN AND CMAKE_BUILD_TYPE STREQUAL "Release" AND NOT KEELSTONE_SANITIZE)
  add_test(NAME Doxygen COMMAND ${make_reference})
  set_tests_properties(Doxygen PROPERTIES TIMEOUT 600)
endif()
