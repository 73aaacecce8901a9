#pragma once

/// How tests drive the simulated chips: C functions of libftd2xx.so beside those of the driver, which a test
/// looks up with dlsym as decltype(QVSIM_...)*. Any thread. A function that returns int gives 1, or 0 when
/// the function or chip does not exist. A serial number selects the first chip that has it.

#include <cstddef>
#include <cstdint>

#pragma GCC visibility push(default)
extern "C" {

/// The call-th next call of this function (1: the next one; 0: every one) does nothing but return the status,
/// which must not be 0. Several calls may be scripted. Status 0 takes back what was scripted for the
/// function.
int QVSIM_FailCall(const char* function, uint32_t call, uint32_t status);

/// Calls of a function since the start or QVSIM_ResetCalls, those that failed included; calls of all.
uint64_t QVSIM_Calls(const char* function);
uint64_t QVSIM_TotalCalls();
void QVSIM_ResetCalls();

/// The next writes accept at most so many bytes, and return at once with what they accepted.
void QVSIM_LimitWrites(uint32_t writes, uint32_t acceptAtMost);

/// The next writes report more bytes than they were given; they do send what they were given.
void QVSIM_OverReportWrites(uint32_t writes, uint32_t more);

/// The next reads report more bytes than they were asked for; they write no more than that.
void QVSIM_OverReportReads(uint32_t reads, uint32_t more);

/// Every FT_Read fails with this status while FT_GetStatus reports at least one byte. Status 0 ends it.
void QVSIM_FailReads(uint32_t status);

/// Unplugged: calls on its handle give 4, those in progress at once, and only FT_Close is left. It cannot be
/// opened, and the next list is without it. Plugged in again it can, but the old handle stays dead.
int QVSIM_Unplug(const char* serial);
int QVSIM_Replug(const char* serial);

/// Opened, and closed again, by another process.
int QVSIM_Hold(const char* serial);
int QVSIM_Release(const char* serial);

/// The chip takes no more bytes, so that writes block once 64 KiB wait. 0: it takes them again.
int QVSIM_Stall(const char* serial, int stalled);

/// Bytes that the device sends on its own. They are there when this returns; the event comes from another
/// thread. 0 also when the chip is not open.
int QVSIM_Inject(const char* serial, const void* bytes, size_t size);

/// Other chips, as a chip file describes them (README.md); those that there are get unplugged. 0, with a line
/// on standard error: the text is malformed, and nothing changes.
int QVSIM_SetChips(const char* text);

/// What was set since the chip was last opened, in alphabetical order and decimal, as
///     baud=9600 bitmode=0,64 data=8,0,0 event=1 flow=256,0,0 latency=1 purged=3 purges=2 timeouts=100,0
///     usb=64,64
/// with `purged` the queues of the last purge; what was not set is not there. Valid until the thread's next
/// call.
const char* QVSIM_Settings(const char* serial);

/// Handles that were not closed, of unplugged chips too.
size_t QVSIM_OpenHandles();

/// Back to the start: no handle is valid, nothing is scripted or counted, and the chips are read anew.
void QVSIM_Reset();
}
#pragma GCC visibility pop
