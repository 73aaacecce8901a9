#pragma once

#include <cstddef>

namespace qvtest {

/// Allocations of this process. The program replaces malloc, and with it operator new and what the C library
/// asks for itself; under a sanitizer, which has its own malloc, operator new alone.

/// From now on the n-th allocation (1: the next) that the library asks for fails, on whatever thread. Those
/// of the stand-in for the USB driver are not the library's.
void FailAllocation(long nth);

/// Whether the one that was to fail has come. Calls it off otherwise.
bool HasFailed();

/// Blocks that are allocated and not freed.
long LiveBlocks();

// For what replaces the functions.
bool MayAllocate();
void NoteBlock(const void* block, long change);  ///< nothing when it is null

}  // namespace qvtest
