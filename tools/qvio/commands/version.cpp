#include <cstdio>
#include <string>

#include "commands/commands.h"
#include "device/application_library.h"
#include "terminal/text.h"

namespace qvio_tool {
namespace {

std::string LibraryOfApplications() {
  const auto library = FindApplicationLibrary();
  if (!library.problem.empty()) {
    return "applications find no libquorvio: " + OneLine(library.problem) +
           "\nhint: install the library, or name its folder in LD_LIBRARY_PATH\n";
  }
  const auto path = OneLine(library.path);
  if (library.version.empty()) return "applications load " + path + ", which is another library\n";
  return "applications load libquorvio " + library.version + ": " + path + '\n';
}

struct VersionOptions {};

int Version(const VersionOptions& /*none*/) {
  std::printf("qvio %s with libquorvio %s built in\n%s", QVIO_VERSION, BuiltInVersion().c_str(),
              LibraryOfApplications().c_str());
  return Done;
}

}  // namespace

void AddVersionCommand(CLI::App& app, Run& run) {
  auto* const command = app.add_subcommand(
      "version",
      "Print the versions of this program, of the library built into it, and of the one installed");
  SetAction(*command, run, Version);
  command->footer("Example:\n  qvio version");
}

}  // namespace qvio_tool
