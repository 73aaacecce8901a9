#pragma once

#include <string_view>
#include <vector>

#include "io/ftdi/d2xx.h"
#include "util/failure.h"

namespace qvio {

/// FTDI's functions; null until found.
struct D2xxFunctions {
  using Api = d2xx::Api;

  Api::FTID_Constructor* FTID_Constructor = nullptr;
  Api::FTID_Destructor* FTID_Destructor = nullptr;
  Api::FT_CreateDeviceInfoList* FT_CreateDeviceInfoList = nullptr;
  Api::FT_GetDeviceInfoList* FT_GetDeviceInfoList = nullptr;
  Api::FT_Open* FT_Open = nullptr;
  Api::FT_OpenEx* FT_OpenEx = nullptr;
  Api::FT_Close* FT_Close = nullptr;
  Api::FT_GetStatus* FT_GetStatus = nullptr;
  Api::FT_Read* FT_Read = nullptr;
  Api::FT_Write* FT_Write = nullptr;
  Api::FT_Purge* FT_Purge = nullptr;
  Api::FT_SetBaudRate* FT_SetBaudRate = nullptr;
  Api::FT_SetDataCharacteristics* FT_SetDataCharacteristics = nullptr;
  Api::FT_SetFlowControl* FT_SetFlowControl = nullptr;
  Api::FT_SetTimeouts* FT_SetTimeouts = nullptr;
  Api::FT_SetLatencyTimer* FT_SetLatencyTimer = nullptr;
  Api::FT_SetBitMode* FT_SetBitMode = nullptr;
  Api::FT_SetUSBParameters* FT_SetUSBParameters = nullptr;
  Api::FT_SetEventNotification* FT_SetEventNotification = nullptr;
  Api::FT_ReadEE* FT_ReadEE = nullptr;
  Api::FT_EE_Read* FT_EE_Read = nullptr;
  Api::FT_EE_UASize* FT_EE_UASize = nullptr;
  Api::FT_EE_UARead* FT_EE_UARead = nullptr;
  Api::FT_EE_UAWrite* FT_EE_UAWrite = nullptr;
  Api::FTID_GetNumDevices* FTID_GetNumDevices = nullptr;
  Api::FTID_GetChipIDFromHandle* FTID_GetChipIDFromHandle = nullptr;
};

/// FTDI's two libraries.
enum class FtdiLibrary { Driver, ChipId };

/// The file that the system is asked for.
constexpr const char* FileName(FtdiLibrary library) {
  return library == FtdiLibrary::Driver ? "libftd2xx.so" : "libftchipid.so";
}

/// The names of the functions that the library must have.
std::vector<std::string_view> NeededFunctions(FtdiLibrary library);

/// Throws Failure with the name of the driver's function unless it has succeeded.
void RequireDriver(uint32_t status, const char* function, uint32_t code = QV_IO_ERROR_DRIVER_FAILURE);

/// The binding to FTDI's libraries, which are found at run time by the system's rules and stay loaded. A
/// failed attempt is final: a driver that is installed later needs a new process. Once it is loaded the
/// functions may be called on any thread; load attempts do not overlap, since the first is made while the
/// library is loaded and any other with the USB mutex held.
class FtdiDriver {
 public:
  /// Whether the functions may be called; makes the attempt if there was none.
  [[nodiscard]] bool ensureLoaded();

  /// When our library is loaded: makes the attempt, and starts up the chip-id library.
  void onLibraryLoad();

  /// When our library is unloaded: shuts the chip-id library down, also if other functions were missing.
  void onLibraryUnload() const;

  [[nodiscard]] const D2xxFunctions& functions() const { return functions_; }

  /// After a failed attempt: what is missing.
  [[nodiscard]] const Reason& problem() const { return problem_; }

 private:
  [[nodiscard]] bool load();
  bool noteProblem();

  bool failed_ = false;
  bool loaded_ = false;
  Reason problem_;
  D2xxFunctions functions_;
};

}  // namespace qvio
