#include "limit_measures.h"
#include "processors.h"

int main() {
  qvbench::RunOnNearProcessor();
  qvbench::MeasureMemory();  // first: what others leave behind in the heap would be used again
  qvbench::MeasureAllocations();
  qvbench::MeasureClosing();
  qvbench::MeasureIdleChannels();
  qvbench::MeasureVanishedPeer();
}
