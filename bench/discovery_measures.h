#pragma once

namespace qvbench {

/// Each prints its lines of the table of network discovery.
void MeasureSearches();
void MeasureDatagrams();
void MeasureFlood();

}  // namespace qvbench
