#pragma once

namespace qvtest {

/// The simulated chips of tests and of the fuzz target, one of each kind.
inline constexpr const char* kChips =
    "desc=\"Quorvi DRV-I\" serial=SLOW chip-id=1001 ua=5156494f01 link=echo\n"
    "desc=\"Quorvi DRV2\" serial=FAST chip-id=4000000002 ua=5156494f0a protocol-id=5\n"
    "desc=\"Quorvi Sensor\" serial=SENSOR chip-id=none pid=0x6002 link=echo\n"
    "desc=\"Quorvi DRV2 A\" serial=DUALA chip-id=1004 type=6 flags=2 pid=0x6010 link=echo\n"
    "desc=\"Quorvi DRV2 B\" serial=DUALB chip-id=1005 type=6 flags=2 pid=0x6010 link=echo\n"
    "desc=\"Quorvi AXU-3D\" serial=HELD chip-id=1006 held\n"
    "desc=\"Quorvi AXU-3D\" serial=\"\" chip-id=1007\n";

}  // namespace qvtest
