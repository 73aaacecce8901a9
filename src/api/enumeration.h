#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "quorvio/quorvio.h"

namespace qvio {

/// The texts of the listing functions; all throw Failure or OptionsError.

/// @param interfaceType  QV_IO_INTERFACE_ALL: records of devices, of the kinds that the options name;
///                       one kind: the locators of its devices, one a line
std::string ListDevices(uint32_t interfaceType, std::string_view options);

std::string ListInterfaces(std::string_view options);

/// The device of a discovery event.
std::string EventDeviceText(const QV_IO_Event& event, std::string_view options);

}  // namespace qvio
