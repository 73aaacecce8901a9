#include <cstdio>

#include "commands.h"
#include "quorvio/quorvio.h"

namespace qvio_tool {

void AddVersionCommand(CLI::App& app, Run& run) {
  auto* const command = app.add_subcommand("version", "Print the version of the library in use");
  command->footer("Example:\n  qvio version");
  command->callback([&run] {
    run = [] {
      uint32_t major = 0;
      uint32_t minor = 0;
      uint32_t update = 0;
      QV_IO_GetVersion(&major, &minor, &update);
      std::printf("qvio with libquorvio %u.%u.%u\n", major, minor, update);
      return static_cast<int>(Done);
    };
  });
}

}  // namespace qvio_tool
