#pragma once

namespace qvbench {

/// Each measures one promise of the library that is a limit and not a comparison, and prints its lines.
void MeasureClosing();
void MeasureAllocations();
void MeasureMemory();
void MeasureIdleChannels();
void MeasureVanishedPeer();

}  // namespace qvbench
