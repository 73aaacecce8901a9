#include "io/ftdi/driver.h"

#include <dlfcn.h>

#include <algorithm>
#include <array>

#include "util/signals_blocked.h"

namespace qvio {
namespace {

/// One function: its name, where it is found, and how its address is stored.
struct EntryPoint {
  const char* name;
  FtdiLibrary library;
  void (*store)(D2xxFunctions& functions, void* address);
};

template <auto Member>
constexpr EntryPoint In(FtdiLibrary library, const char* name) {
  return {name, library, [](D2xxFunctions& functions, void* address) {
            auto& function = functions.*Member;
            function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(address);
          }};
}

constexpr std::array kEntryPoints{
    In<&D2xxFunctions::FTID_Constructor>(FtdiLibrary::ChipId, "FTID_Constructor"),
    In<&D2xxFunctions::FTID_Destructor>(FtdiLibrary::ChipId, "FTID_Destructor"),
    In<&D2xxFunctions::FT_CreateDeviceInfoList>(FtdiLibrary::Driver, "FT_CreateDeviceInfoList"),
    In<&D2xxFunctions::FT_GetDeviceInfoList>(FtdiLibrary::Driver, "FT_GetDeviceInfoList"),
    In<&D2xxFunctions::FT_Open>(FtdiLibrary::Driver, "FT_Open"),
    In<&D2xxFunctions::FT_OpenEx>(FtdiLibrary::Driver, "FT_OpenEx"),
    In<&D2xxFunctions::FT_Close>(FtdiLibrary::Driver, "FT_Close"),
    In<&D2xxFunctions::FT_GetStatus>(FtdiLibrary::Driver, "FT_GetStatus"),
    In<&D2xxFunctions::FT_Read>(FtdiLibrary::Driver, "FT_Read"),
    In<&D2xxFunctions::FT_Write>(FtdiLibrary::Driver, "FT_Write"),
    In<&D2xxFunctions::FT_Purge>(FtdiLibrary::Driver, "FT_Purge"),
    In<&D2xxFunctions::FT_SetBaudRate>(FtdiLibrary::Driver, "FT_SetBaudRate"),
    In<&D2xxFunctions::FT_SetDataCharacteristics>(FtdiLibrary::Driver, "FT_SetDataCharacteristics"),
    In<&D2xxFunctions::FT_SetFlowControl>(FtdiLibrary::Driver, "FT_SetFlowControl"),
    In<&D2xxFunctions::FT_SetTimeouts>(FtdiLibrary::Driver, "FT_SetTimeouts"),
    In<&D2xxFunctions::FT_SetLatencyTimer>(FtdiLibrary::Driver, "FT_SetLatencyTimer"),
    In<&D2xxFunctions::FT_SetBitMode>(FtdiLibrary::Driver, "FT_SetBitMode"),
    In<&D2xxFunctions::FT_SetUSBParameters>(FtdiLibrary::Driver, "FT_SetUSBParameters"),
    In<&D2xxFunctions::FT_SetEventNotification>(FtdiLibrary::Driver, "FT_SetEventNotification"),
    In<&D2xxFunctions::FT_ReadEE>(FtdiLibrary::Driver, "FT_ReadEE"),
    In<&D2xxFunctions::FT_EE_Read>(FtdiLibrary::Driver, "FT_EE_Read"),
    In<&D2xxFunctions::FT_EE_UASize>(FtdiLibrary::Driver, "FT_EE_UASize"),
    In<&D2xxFunctions::FT_EE_UARead>(FtdiLibrary::Driver, "FT_EE_UARead"),
    In<&D2xxFunctions::FT_EE_UAWrite>(FtdiLibrary::Driver, "FT_EE_UAWrite"),
    In<&D2xxFunctions::FTID_GetNumDevices>(FtdiLibrary::ChipId, "FTID_GetNumDevices"),
    In<&D2xxFunctions::FTID_GetChipIDFromHandle>(FtdiLibrary::ChipId, "FTID_GetChipIDFromHandle")};

}  // namespace

std::vector<std::string_view> NeededFunctions(FtdiLibrary library) {
  std::vector<std::string_view> names;
  for (const auto& entry : kEntryPoints)
    if (entry.library == library) names.emplace_back(entry.name);
  return names;
}

void RequireDriver(uint32_t status, const char* function, uint32_t code) {
  Require(status == d2xx::status::kOk, code, "% failed with status %", {function, status});
}

bool FtdiDriver::ensureLoaded() {
  if (failed_ || loaded_) return loaded_;
  loaded_ = load();
  failed_ = !loaded_;
  return loaded_;
}

/// The handles of the libraries are neither kept nor closed: the libraries must stay loaded.
bool FtdiDriver::load() {
  void* const driver = ::dlopen(FileName(FtdiLibrary::Driver), RTLD_NOW);
  if (driver == nullptr) noteProblem();
  void* const chipId = ::dlopen(FileName(FtdiLibrary::ChipId), RTLD_NOW);
  if (driver != nullptr && chipId == nullptr) noteProblem();
  if (driver == nullptr || chipId == nullptr) return false;
  ::dlerror();  // drops an error that the application has not read
  return std::ranges::all_of(kEntryPoints, [&](const EntryPoint& entry) {
    void* const address = ::dlsym(entry.library == FtdiLibrary::Driver ? driver : chipId, entry.name);
    if (noteProblem()) return false;
    entry.store(functions_, address);
    return true;
  });
}

/// Keeps the dynamic linker's text about the last call, if that failed.
bool FtdiDriver::noteProblem() {
  const char* const text = ::dlerror();
  if (text != nullptr) problem_ = Reason("%", {text});
  return text != nullptr;
}

void FtdiDriver::onLibraryLoad() {
  const cppu::AllSignalsBlocked inherited;  // by threads that the driver starts
  if (ensureLoaded()) functions_.FTID_Constructor();
}

void FtdiDriver::onLibraryUnload() const {
  if (functions_.FTID_Destructor != nullptr) functions_.FTID_Destructor();
}

}  // namespace qvio
