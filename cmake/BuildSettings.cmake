# What every target of the project is compiled with: warnings, sanitizers, hardening. Within a parent project the flags are
# the parent's alone.
add_library(quorvio_settings INTERFACE)
target_compile_features(quorvio_settings INTERFACE cxx_std_20 c_std_99)
if(PROJECT_IS_TOP_LEVEL)
  target_compile_options(quorvio_settings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wcast-qual -Wformat=2 -Wundef
    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual -Wextra-semi>)
  target_link_options(quorvio_settings INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack,--as-needed)
  if(NOT CMAKE_CXX_FLAGS MATCHES "stack-protector")
    target_compile_options(quorvio_settings INTERFACE -fstack-protector-strong)
  endif()
endif()
target_compile_options(quorvio_settings INTERFACE $<$<BOOL:${QUORVIO_WERROR}>:-Werror>)
target_link_libraries(quorvio_settings INTERFACE Threads::Threads)

# An instrumented build holds symbols and libraries that the library itself has not.
set(QUORVIO_INSTRUMENTED OFF)
set(QUORVIO_SANITIZED OFF)
if(QUORVIO_SANITIZE)
  target_compile_options(quorvio_settings INTERFACE
    -fsanitize=${QUORVIO_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -O1)
  target_link_options(quorvio_settings INTERFACE -fsanitize=${QUORVIO_SANITIZE})
  set(QUORVIO_INSTRUMENTED ON)
  set(QUORVIO_SANITIZED ON)
elseif(QUORVIO_COVERAGE)
  # Counters are atomic: several threads run the same line.
  target_compile_options(quorvio_settings INTERFACE --coverage -fprofile-update=atomic -O0)
  target_link_options(quorvio_settings INTERFACE --coverage)
  set(QUORVIO_INSTRUMENTED ON)
elseif(PROJECT_IS_TOP_LEVEL AND NOT CMAKE_CXX_FLAGS MATCHES "_FORTIFY_SOURCE")
  target_compile_options(quorvio_settings INTERFACE $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
endif()
