# Keeps the shared library small: it is optimised as a whole when it is linked, knowing that only the exported functions
# are called from outside. A parent project or user that sets CMAKE_INTERPROCEDURAL_OPTIMIZATION decides instead.
if(QUORVIO_INSTRUMENTED OR QUORVIO_LIBFUZZER)
  return()
endif()
set(optimised $<NOT:$<CONFIG:Debug>>)
target_compile_options(quorvio_objects PRIVATE $<${optimised}:-ffunction-sections -fdata-sections>)
target_link_options(quorvio PRIVATE $<${optimised}:-Wl,--gc-sections>)

if(NOT DEFINED CMAKE_INTERPROCEDURAL_OPTIMIZATION AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # "Fat" objects hold ordinary code as well. Programs take that, so that linking them stays fast.
  target_compile_options(quorvio_objects PRIVATE $<${optimised}:-flto=auto -ffat-lto-objects>)
  target_link_options(quorvio PRIVATE $<${optimised}:-flto=auto>)
  target_link_options(quorvio_objects INTERFACE
    $<$<AND:${optimised},$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>>:-fno-lto>)
endif()
