#pragma once

#include <string>
#include <string_view>

#include "nd/packet.h"

namespace quorvind {

/// Texts for people and the discovery log.

/// "Success", "PermissionDenied" …; "Unknown" for a code that the protocol does not name.
std::string_view ResultCodeName(ResultCode code);

/// 36 characters in the layout of a UUID, hexadecimal in capitals.
std::string TokenToString(const RequestToken& token);

/// One line with the header and the fields of the payload.
std::string ToString(const QV_ND_Packet& packet);

/// One line with the size and every byte in hexadecimal.
std::string ToString(const QV_ND_RawPacket& datagram);

}  // namespace quorvind
