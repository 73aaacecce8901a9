# Keeps the shared library small: it is optimised as a whole when it is linked, knowing that only the exported functions
# are called from outside. A parent project, or a user who sets CMAKE_INTERPROCEDURAL_OPTIMIZATION, decides instead.
if(NOT PROJECT_IS_TOP_LEVEL OR QUORVIO_INSTRUMENTED OR QUORVIO_LIBFUZZER)
  return()
endif()
set(optimised $<NOT:$<CONFIG:Debug>>)
target_compile_options(quorvio_objects PRIVATE $<${optimised}:-ffunction-sections -fdata-sections>)
target_link_options(quorvio PRIVATE $<${optimised}:-Wl,--gc-sections>)

# What opens, lists and reads texts runs seldom: small rather than fast.
set_source_files_properties(
  api/enumeration.cpp api/library.cpp
  io/ftdi/chip.cpp io/ftdi/device_list.cpp io/ftdi/driver.cpp io/ftdi/find_chip.cpp io/ftdi/link_settings.cpp
  io/ftdi/listing.cpp io/ftdi/protocol_id.cpp io/ftdi/usb.cpp
  io/io_network.cpp io/io_serial.cpp io/release_descriptor.cpp io/serial_ports.cpp io/tcp_connect.cpp
  nd/device_search.cpp nd/discovery.cpp nd/discovery_state.cpp nd/interface_sockets.cpp nd/interface_texts.cpp
  nd/local_addresses.cpp nd/log.cpp nd/packet_text.cpp nd/search_task.cpp
  options/locator.cpp options/option_sets.cpp options/options_map.cpp util/failure.cpp util/text_out.cpp
  PROPERTIES COMPILE_OPTIONS $<${optimised}:-Os>)

if(NOT DEFINED CMAKE_INTERPROCEDURAL_OPTIMIZATION AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # "Fat" objects hold ordinary code as well. Programs take that, so that linking them stays fast.
  target_compile_options(quorvio_objects PRIVATE $<${optimised}:-flto=auto -ffat-lto-objects>)
  target_link_options(quorvio PRIVATE $<${optimised}:-flto=auto>)
  target_link_options(quorvio_objects INTERFACE
    $<$<AND:${optimised},$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>>:-fno-lto>)
endif()
