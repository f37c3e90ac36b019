# The target "docs" makes the pages of the public headers, build/.../docs/html and docs/man3. What it has made is
# installed; nothing else needs Doxygen.
find_program(LANYARD_DOXYGEN doxygen)
if(LANYARD_DOXYGEN AND PROJECT_IS_TOP_LEVEL)
  add_custom_target(docs
    COMMAND ${PROJECT_SOURCE_DIR}/scripts/build-docs.py ${PROJECT_BINARY_DIR}/docs
    COMMENT "Pages of the public headers: docs/html, docs/man3"
    VERBATIM)
endif()
install(DIRECTORY ${PROJECT_BINARY_DIR}/docs/man3 DESTINATION ${CMAKE_INSTALL_MANDIR} OPTIONAL)
install(DIRECTORY ${PROJECT_BINARY_DIR}/docs/html DESTINATION ${CMAKE_INSTALL_DOCDIR} OPTIONAL)
