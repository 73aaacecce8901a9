# What every target of the project is compiled with: warnings, sanitizers, hardening.
add_library(quorvio_settings INTERFACE)
target_compile_options(quorvio_settings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wcast-qual -Wformat=2 -Wundef
  $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual -Wextra-semi>
  $<$<BOOL:${QUORVIO_WERROR}>:-Werror>
  -fstack-protector-strong)
target_link_options(quorvio_settings INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack,--as-needed)
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
else()
  target_compile_options(quorvio_settings INTERFACE $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
endif()
