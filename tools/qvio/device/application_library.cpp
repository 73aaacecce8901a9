#include "device/application_library.h"

#include <dlfcn.h>
#include <link.h>

#include <memory>

#include "quorvio/quorvio.h"

namespace qvio_tool {
namespace {

std::string VersionOf(decltype(QV_IO_GetVersion)* getVersion) {
  uint32_t major = 0;
  uint32_t minor = 0;
  uint32_t update = 0;
  getVersion(&major, &minor, &update);
  return std::to_string(major) + '.' + std::to_string(minor) + '.' + std::to_string(update);
}

}  // namespace

ApplicationLibrary FindApplicationLibrary() {
  const std::unique_ptr<void, int (*)(void*)> library(::dlopen(kApplicationLibrary, RTLD_LAZY | RTLD_LOCAL),
                                                      ::dlclose);
  if (!library) return {.path = {}, .version = {}, .problem = ::dlerror()};
  ApplicationLibrary found{.path = kApplicationLibrary, .version = {}, .problem = {}};
  const link_map* map = nullptr;
  ::dlinfo(library.get(), RTLD_DI_LINKMAP, &map);
  if (map != nullptr) found.path = map->l_name;
  if (auto* const getVersion = ::dlsym(library.get(), "QV_IO_GetVersion"); getVersion != nullptr)
    found.version = VersionOf(reinterpret_cast<decltype(QV_IO_GetVersion)*>(getVersion));
  return found;
}

std::string BuiltInVersion() { return VersionOf(QV_IO_GetVersion); }

}  // namespace qvio_tool
