// The thirteen functions of the library: each checks its pointers, makes one call inward, and turns what that
// throws into a result code.

#include <pthread.h>

#include <cstring>
#include <string_view>
#include <utility>

#include "api/enumeration.h"
#include "api/event_record.h"
#include "api/library.h"
#include "io/ftdi/io_ftdi.h"
#include "io/io_network.h"
#include "io/io_serial.h"
#include "nd/discovery.h"
#include "options/locator.h"
#include "options/option_sets.h"
#include "quorvio/quorvio.h"
#include "util/failure.h"
#include "util/scope_exit.h"
#include "util/text_out.h"
#include "util/thread.h"

namespace qvio {
namespace {

/// Delays cancellation of the calling thread until the end of the call: in the middle of it, locks would stay
/// held and devices open.
class CancellationOff {
 public:
  CancellationOff() { ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
  CancellationOff(const CancellationOff&) = delete;
  CancellationOff& operator=(const CancellationOff&) = delete;
  ~CancellationOff() { ::pthread_setcancelstate(before_, nullptr); }

 private:
  int before_ = PTHREAD_CANCEL_ENABLE;
};

/// Wraps the work of every exported function.
template <class Action>
uint32_t Call(Action action) {
  const CancellationOff wholeCall;
  return ResultOf(action);
}

template <class... Pointers>
void RequirePointers(Pointers... pointers) {
  Require(((pointers != nullptr) && ...), QV_IO_ERROR_INVALID_ARGUMENT, "a pointer is null");
}

void RequireBuffer(const void* buffer, std::size_t size) {
  Require(buffer != nullptr || size == 0, QV_IO_ERROR_INVALID_ARGUMENT, "the buffer is null");
}

void RequireTextOut(const char* buffer, const std::size_t* size) {
  RequirePointers(size);
  RequireBuffer(buffer, *size);
}

/// A null text is allowed wherever an empty one is.
std::string_view TextOrEmpty(const char* text) { return text != nullptr ? text : std::string_view{}; }

std::shared_ptr<IoDevice> MakeChannel(ChannelArguments arguments) {
  const auto interfaceType = arguments.locator.interfaceType;
  switch (interfaceType) {
    case QV_IO_INTERFACE_USB:
      return std::make_shared<IoFtdi>(std::move(arguments));
    case QV_IO_INTERFACE_NETWORK:
      return std::make_shared<IoNetwork>(std::move(arguments));
    case QV_IO_INTERFACE_SERIAL:
      return std::make_shared<IoSerial>(std::move(arguments));
    default:
      Fail(QV_IO_ERROR_INVALID_LOCATOR, "interface type % has no channel", {interfaceType});
  }
}

uint32_t OpenChannel(ChannelArguments arguments) {
  const auto channel = MakeChannel(std::move(arguments));
  channel->open(channel);
  // Only now, so that a slow open does not block a slot.
  const auto slot = TheLibrary().handles.store(channel);
  if (!slot) channel->close(true);
  Require(slot.has_value(), QV_IO_ERROR_NO_FREE_HANDLE, "all % handles are in use",
          {uint32_t{QV_IO_HANDLE_COUNT}});
  return *slot;
}

}  // namespace
}  // namespace qvio

using namespace qvio;  // NOLINT(google-build-using-namespace): the functions are outside of every namespace

uint32_t QV_IO_GetVersion(uint32_t* major, uint32_t* minor, uint32_t* update) {
  return Call([&] {
    RequirePointers(major, minor, update);
    *major = 2;
    *minor = 1;
    *update = 2;
  });
}

uint32_t QV_IO_GetLocatorInterfaceType(uint32_t* interfaceType, const char* locator) {
  return Call([&] {
    RequirePointers(interfaceType);
    // First, so that a failure leaves it at 0.
    *interfaceType = 0;
    *interfaceType = ReadLocator(TextOrEmpty(locator)).interfaceType;
  });
}

uint32_t QV_IO_CanEnumerateDevices(uint32_t interfaceType, uint32_t* canEnumerate) {
  return Call([&] {
    RequirePointers(canEnumerate);
    *canEnumerate = interfaceType == QV_IO_INTERFACE_USB ? 1 : 0;
  });
}

uint32_t QV_IO_EnumerateDevices(uint32_t interfaceType, const char* options, char* buffer, size_t* size) {
  return Call([&] {
    RequireTextOut(buffer, size);
    const auto result =
        ResultOf([&] { HandOutListing(ListDevices(interfaceType, TextOrEmpty(options)), buffer, *size); });
    // Without a driver, callers that look at the text alone see no chip.
    if (result == QV_IO_ERROR_DRIVER_UNAVAILABLE && interfaceType == QV_IO_INTERFACE_USB) {
      HandOutNothing(buffer, *size);
    }
    return result;
  });
}

uint32_t QV_IO_EnumerateInterfaces(const char* options, char* buffer, size_t* size) {
  return Call([&] {
    RequireTextOut(buffer, size);
    HandOutListing(ListInterfaces(TextOrEmpty(options)), buffer, *size);
  });
}

uint32_t QV_IO_SetGlobalOptions(const char* options) {
  return Call([&] {
    // Read before the lock: resolving interfaces can take long, and callbacks wait for the global mutex.
    const auto settings = quorvind::ReadSettings(ReadGlobalOptions(TextOrEmpty(options)));
    const cppu::ScopeExit joined(
        [] { cppu::Threads::all().joinReleased(); });  // of interfaces that were watched
    const std::lock_guard lock(TheLibrary().globalMutex);
    quorvind::AdoptSettings(settings, TheLibrary().events);
  });
}

uint32_t QV_IO_SetEventCallback(QV_IO_EventCallback callback, void* userData) {
  return Call([&] { TheLibrary().events.set(callback, userData); });
}

uint32_t QV_IO_GetErrorEventData(const QV_IO_Event* event, uint32_t* errorCode, char* buffer, size_t* size) {
  return Call([&] {
    Require(event != nullptr && event->type == QV_IO_EVENT_ERROR, QV_IO_ERROR_WRONG_EVENT_TYPE,
            "not an error event");
    RequirePointers(errorCode);
    RequireTextOut(buffer, size);
    HandOutListing(event->message, buffer, *size);
    *errorCode = event->errorCode;
  });
}

uint32_t QV_IO_GetDiscoveryEventData(const QV_IO_Event* event, const char* options, char* buffer,
                                     size_t* size) {
  return Call([&] {
    const bool discovery = event != nullptr && (event->type == QV_IO_EVENT_DEVICE_FOUND ||
                                                event->type == QV_IO_EVENT_DEVICE_LOST);
    Require(discovery, QV_IO_ERROR_WRONG_EVENT_TYPE, "not a discovery event");
    RequireTextOut(buffer, size);
    HandOutListing(EventDeviceText(*event, TextOrEmpty(options)), buffer, *size);
  });
}

uint32_t QV_IO_Open(uint32_t* handle, const char* locator, const char* options, void* userData,
                    QV_IO_ReceiveCallback onReceive, QV_IO_ErrorCallback onError) {
  return Call([&] {
    RequirePointers(handle);
    *handle = 0;
    *handle = OpenChannel(
        {ReadLocator(TextOrEmpty(locator)), std::string(TextOrEmpty(options)), userData, onReceive, onError});
  });
}

uint32_t QV_IO_Close(uint32_t handle, uint32_t wait) {
  return Call([&] { TheLibrary().handles.take(handle)->close(wait != 0); });
}

uint32_t QV_IO_Send(uint32_t handle, const void* data, size_t length) {
  return Call([&] {
    // The reference keeps the channel alive, should another thread close the handle during the call.
    const auto channel = TheLibrary().handles.at(handle);
    RequireBuffer(data, length);
    channel->send({static_cast<const uint8_t*>(data), length});
  });
}

uint32_t QV_IO_GetProperty(uint32_t handle, const char* key, char* buffer, size_t* size) {
  return Call([&] {
    const auto channel = TheLibrary().handles.at(handle);
    RequirePointers(key);
    RequireTextOut(buffer, size);
    // A TCP link has no property at all, which callers may also see by the empty text.
    if (channel->interfaceType() == QV_IO_INTERFACE_NETWORK) HandOutNothing(buffer, *size);
    HandOutProperty(channel->property(key), buffer, *size);
  });
}
