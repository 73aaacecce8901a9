// Which libraries the dynamic loader finds, and whether they fit.

#include <algorithm>
#include <sstream>

#include "doctor/checks.h"
#include "doctor/chips.h"
#include "io/ftdi/driver.h"
#include "util/text.h"

namespace qvio_tool {
namespace {

using qvio::FtdiLibrary;

constexpr std::string_view kFolderOfAdmins = "/usr/local/lib";
constexpr const char* kChooseOwnDriver =
    "echo " QVIO_DRIVER_FOLDER
    " | sudo tee /etc/ld.so.conf.d/quorvio-driver.conf && sudo ldconfig # or install FTDI's";

enum class Fit {
  Missing,
  Foreign,  ///< all files of the name are for other machines
  Damaged,  ///< not a library at all, and the loader stops there
  Loadable
};

struct Found {
  Fit fit = Fit::Missing;
  std::string path{};
  std::string kind{};  ///< of a foreign one
};

/// Lines of the cache look like "\tlibz.so.1 (libc6,x86-64) => /usr/lib/libz.so.1".
std::vector<std::string> CachedPaths(const Machine& machine, const std::string& name) {
  constexpr std::string_view kArrow = " => ";
  std::vector<std::string> paths;
  std::istringstream cache(machine.loaderCache);
  for (std::string line; std::getline(cache, line);) {
    const auto arrow = line.find(kArrow);
    if (cppu::Trim(line).starts_with(name + " (") && arrow != std::string::npos)
      paths.push_back(line.substr(arrow + kArrow.size()));
  }
  return paths;
}

/// Where the loader looks for a library, in its order.
std::vector<std::string> PathsOf(const Machine& machine, const std::string& name) {
  std::vector<std::string> paths;
  const auto file = '/' + name;
  for (const auto folder : cppu::Split(machine.libraryPath, ':'))
    if (!folder.empty()) paths.push_back(std::string(folder) + file);
  std::ranges::move(CachedPaths(machine, name), std::back_inserter(paths));
  for (const auto& folder : machine.loaderFolders) paths.push_back(folder + file);
  return paths;
}

/// The loader passes over libraries for other machines, and gives up at a file that is not a library.
Found Find(const Machine& machine, const std::string& name) {
  Found found;
  std::error_code ignored;
  for (const auto& path : PathsOf(machine, name)) {
    if (!std::filesystem::exists(machine.at(path), ignored)) continue;
    const auto kind = KindOf(machine.at(path));
    if (!kind) return {Fit::Damaged, path};
    if (kind == machine.kind) return {Fit::Loadable, path};
    if (found.fit == Fit::Missing) found = {Fit::Foreign, path, kind->text()};
  }
  return found;
}

/// The command for a library that the loader does not find; it may lie in a folder that is not searched.
std::string FixMissing(const Machine& machine, const std::string& name, const std::string& install) {
  const auto folder = std::string(kFolderOfAdmins);
  const auto path = folder + '/' + name;
  auto update = "sudo ldconfig " + folder;
  if (machine.has(path)) return update;
  const auto files = machine.entries(folder);
  const auto isIt = [begin = name + '.'](const std::string& file) { return file.starts_with(begin); };
  const auto found = std::ranges::find_if(files, isIt);
  return found != files.end() ? "sudo ln -s " + ShellWord(*found) + ' ' + path + " && " + update : install;
}

std::string MissingFunctions(const Machine& machine, FtdiLibrary library, const std::string& path) {
  const auto exports = ExportsOf(machine.at(path));
  std::vector<std::string_view> missing;
  for (const auto name : qvio::NeededFunctions(library))
    if (!exports.contains(std::string(name))) missing.push_back(name);
  return cppu::Join(missing, ' ');
}

Finding CheckFtdiLibrary(const Machine& machine, FtdiLibrary library) {
  const std::string name = qvio::FileName(library);
  const auto found = Find(machine, name);
  const auto installAt = [&](const std::string& place) {
    return "sudo install -m 755 " + name + ' ' + ShellWord(place) + " && sudo ldconfig";
  };
  const bool hasOwn = machine.has(QVIO_DRIVER_FOLDER "/" + name);
  switch (found.fit) {
    case Fit::Missing:
      return {name, State::Fault, "the loader does not find it; USB devices need FTDI's libraries",
              FixMissing(machine, name, hasOwn ? kChooseOwnDriver : installAt(std::string(kFolderOfAdmins)))};
    case Fit::Foreign:
      return {name, State::Fault,
              found.path + " is for another machine (" + found.kind + "); this program needs " +
                  (machine.kind ? machine.kind->text() : "its own kind"),
              installAt(found.path)};
    case Fit::Damaged:
      return {name, State::Fault, found.path + " is not a library", installAt(found.path)};
    case Fit::Loadable:
      break;
  }
  const auto missing = MissingFunctions(machine, library, found.path);
  if (missing.empty()) return {name, State::Ok, found.path};
  return {name, State::Fault, found.path + " is too old, it lacks " + missing, installAt(found.path)};
}

}  // namespace

Findings CheckLibrary(const Machine& machine) {
  constexpr const char* kInstall = "sudo cmake --install build && sudo ldconfig";
  const auto& library = machine.library;
  const auto finding = [](State state, const std::string& text, const std::string& fix = "") {
    return Findings{{kApplicationLibrary, state, text, fix}};
  };
  if (!library.problem.empty())
    return finding(State::Fault, "applications do not find it: " + library.problem,
                   FixMissing(machine, kApplicationLibrary, kInstall));
  if (library.version.empty())
    return finding(State::Fault, "applications load " + library.path + ", which is another library",
                   machine.libraryPath.empty() ? kInstall : "unset LD_LIBRARY_PATH");
  const auto text = "applications load version " + library.version + ": " + library.path;
  if (library.version == machine.builtInVersion) return finding(State::Ok, text);
  return finding(State::Note, text + "; this program has " + machine.builtInVersion + " built in");
}

bool HasFtdiLibrary(const Machine& machine) {
  return Find(machine, qvio::FileName(FtdiLibrary::Driver)).fit != Fit::Missing ||
         Find(machine, qvio::FileName(FtdiLibrary::ChipId)).fit != Fit::Missing;
}

bool HasOwnDriver(const Machine& machine) {
  const auto found = Find(machine, qvio::FileName(FtdiLibrary::Driver));
  return found.fit == Fit::Loadable && ExportsOf(machine.at(found.path)).contains("QVUSB_ChipId");
}

Findings CheckFtdiLibraries(const Machine& machine) {
  const auto chips = ChipsOf(machine);
  const auto isSerialPort = [](const UsbChip& chip) { return chip.isSerialPort(); };
  if (!HasFtdiLibrary(machine) && std::ranges::all_of(chips, isSerialPort))
    return {
        {"libftd2xx.so libftchipid.so", State::Note, "not found; only devices on usb: locators need them"}};
  Findings findings{CheckFtdiLibrary(machine, FtdiLibrary::Driver),
                    CheckFtdiLibrary(machine, FtdiLibrary::ChipId)};
  const auto isOk = [](const Finding& finding) { return finding.state == State::Ok; };
  if (!machine.driverProblem.empty() && std::ranges::all_of(findings, isOk))
    findings.push_back({"loading them", State::Fault, machine.driverProblem,
                        "ldd " + ShellWord(findings.front().text) + " # lists the libraries that it lacks"});
  return findings;
}

}  // namespace qvio_tool
