#pragma once

#include "driver/status.h"

namespace qvsim {
namespace status = qvusb::status;
}
