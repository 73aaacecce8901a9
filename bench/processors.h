#pragma once

namespace qvbench {

/// Keep the calling thread, and those that it starts, on the processor of the near or of the far end: the
/// first and the second one that the process may use. Where the scheduler puts threads would otherwise weigh
/// more than what they do. With a single processor both share it. Call the first of all before the process
/// has threads.
void RunOnNearProcessor();
void RunOnFarProcessor();

}  // namespace qvbench
