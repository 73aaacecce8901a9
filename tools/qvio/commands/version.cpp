#include <dlfcn.h>
#include <link.h>

#include <cstdio>
#include <memory>
#include <string>

#include "commands/commands.h"
#include "quorvio/quorvio.h"
#include "terminal/text.h"

namespace qvio_tool {
namespace {

constexpr const char* kLibrary = "libquorvio.so.2";

std::string VersionOf(decltype(QV_IO_GetVersion)* getVersion) {
  uint32_t major = 0;
  uint32_t minor = 0;
  uint32_t update = 0;
  getVersion(&major, &minor, &update);
  return std::to_string(major) + '.' + std::to_string(minor) + '.' + std::to_string(update);
}

/// The library that the dynamic linker finds for an application in the same environment.
std::string LibraryOfApplications() {
  const std::unique_ptr<void, int (*)(void*)> library(::dlopen(kLibrary, RTLD_LAZY | RTLD_LOCAL), ::dlclose);
  if (!library) {
    return "applications find no libquorvio: " + OneLine(::dlerror()) +
           "\nhint: install the library, or name its folder in LD_LIBRARY_PATH\n";
  }
  const link_map* map = nullptr;
  ::dlinfo(library.get(), RTLD_DI_LINKMAP, &map);
  const auto path = map != nullptr ? OneLine(map->l_name) : kLibrary;
  auto* const getVersion = ::dlsym(library.get(), "QV_IO_GetVersion");
  if (getVersion == nullptr) return "applications load " + path + ", which is another library\n";
  return "applications load libquorvio " +
         VersionOf(reinterpret_cast<decltype(QV_IO_GetVersion)*>(getVersion)) + ": " + path + '\n';
}

struct VersionOptions {};

int Version(const VersionOptions& /*none*/) {
  std::printf("qvio %s with libquorvio %s built in\n%s", QVIO_VERSION, VersionOf(QV_IO_GetVersion).c_str(),
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
