#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <memory>

#include "device/listing.h"
#include "device/search.h"
#include "doctor/machine.h"
#include "doctor/multicast_probe.h"
#include "doctor/spawned.h"
#include "io/ftdi/usb.h"
#include "nd/errors.h"
#include "nd/network_socket.h"
#include "terminal/failure.h"
#include "util/text.h"

namespace qvio_tool {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kProgramLimit{500};
constexpr milliseconds kSearchTime{300};
constexpr uint32_t kSearches = 3;

/// The folders that the loader searches without its cache, those of LD_LIBRARY_PATH included.
std::vector<std::string> LoaderFolders() {
  Dl_serinfo size{};
  void* const program = ::dlopen(nullptr, RTLD_LAZY);
  if (program == nullptr || ::dlinfo(program, RTLD_DI_SERINFOSIZE, &size) != 0) return {};
  const auto storage = std::make_unique<std::max_align_t[]>(size.dls_size / sizeof(std::max_align_t) + 1);
  auto* const info = reinterpret_cast<Dl_serinfo*>(storage.get());
  *info = size;
  if (::dlinfo(program, RTLD_DI_SERINFO, info) != 0) return {};
  std::vector<std::string> folders;
  for (unsigned i = 0; i < info->dls_cnt; ++i) folders.emplace_back((&info->dls_serpath[0] + i)->dls_name);
  return folders;
}

/// An empty folder is the current one, as the loader has it.
std::string LibraryPath() {
  const auto* const path = std::getenv("LD_LIBRARY_PATH");
  if (path == nullptr || *path == '\0') return {};
  std::vector<std::string> folders;
  for (const auto folder : cppu::Split(path, ':'))
    folders.push_back(std::filesystem::absolute(folder.empty() ? "." : folder));
  return cppu::Join(folders, ':');
}

/// Loads FTDI's libraries as a channel would.
std::string DriverProblem() try {
  const qvio::UsbAccess access;
  return {};
} catch (const qvio::Failure& failure) {
  return failure.what();
}

std::optional<std::string> FirewallRules() {
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"nft", "list", "ruleset"}, {"iptables-save"}})
    if (auto rules = OutputOf(command, kProgramLimit)) return rules;
  return {};
}

/// Binds as discovery does: to the addresses of every interface.
std::string BindProblem(const std::vector<quorvind::Interface>& interfaces, uint16_t port) try {
  for (const auto& interface : interfaces) {
    const auto local = quorvind::FindLocalAddress(interface.address).value_or(quorvind::LocalAddress{});
    if (port == quorvind::kMulticastPort) {
      static_cast<void>(quorvind::OpenMulticast(interface.address, local));
    } else {
      static_cast<void>(quorvind::OpenBroadcast(interface.address, local));
    }
  }
  return {};
} catch (const quorvind::NetworkException& failure) {
  return failure.what();
}

void Search(Machine& machine) try {
  quorvind::IP4Set addresses;
  for (const auto& interface : machine.interfaces) addresses.insert(interface.address);
  if (addresses.empty()) throw CommandFailure(kNoInterface);
  const DeviceSearch search(addresses);
  machine.devices = AskRepeatedly(search, kSearchTime, kSearches);
} catch (const CommandFailure& failure) {
  machine.searchProblem = failure.what();
}

}  // namespace

Machine ThisMachine() {
  Machine machine;
  machine.libraryPath = LibraryPath();
  machine.loaderFolders = LoaderFolders();
  machine.loaderCache = OutputOf({"ldconfig", "-p"}, kProgramLimit).value_or("");
  machine.kind = KindOf("/proc/self/exe");
  machine.library = FindApplicationLibrary();
  machine.builtInVersion = BuiltInVersion();
  machine.driverProblem = DriverProblem();
  machine.interfaces = quorvind::ListInterfaces();
  machine.firewall = FirewallRules();
  machine.isRoot = ::geteuid() == 0;
  machine.mayUse = [](const std::string& path) { return ::access(path.c_str(), R_OK | W_OK) == 0; };
  machine.bindProblem = [interfaces = machine.interfaces](uint16_t port) {
    return BindProblem(interfaces, port);
  };
  machine.multicastProblem = MulticastProblem;
  Search(machine);
  return machine;
}

}  // namespace qvio_tool
