# The target `reference`: HTML pages of the public headers, without a warning, in the build folder's reference/html.
find_package(Doxygen QUIET)
if(NOT DOXYGEN_FOUND)
  return()
endif()
set(DOXYGEN_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/reference)
set(DOXYGEN_STRIP_FROM_PATH ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR})  # the same pages in every folder
set(DOXYGEN_USE_MDFILE_AS_MAINPAGE ${PROJECT_SOURCE_DIR}/docs/reference.md)
set(DOXYGEN_JAVADOC_AUTOBRIEF YES)
set(DOXYGEN_DISTRIBUTE_GROUP_DOC YES)  # the members of Reconnecting share the comment of the first
set(DOXYGEN_EXCLUDE_SYMBOLS quorvio::detail)
set(DOXYGEN_VERBATIM_HEADERS NO)
set(DOXYGEN_WARN_AS_ERROR FAIL_ON_WARNINGS)
set(DOXYGEN_HAVE_DOT NO)
set(DOXYGEN_QUIET YES)
doxygen_add_docs(reference ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/docs/reference.md
  COMMENT "Writing the reference")
