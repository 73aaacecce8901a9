/** @file
 * libquorvio: one uniform way to exchange bytes with motion controllers and sensors over USB (FTDI
 * chip), a serial port or TCP.
 *
 * A device is named by a locator text:
 *
 *     usb:sn:SERIAL        usb:id:NUMBER        usb:ix:INDEX
 *     serial:PATH
 *     network:HOST         network:HOST:PORT    network:sn:SERIAL    network:sn:SERIAL:PORT
 *
 * Option texts hold one option a line, "KEY VALUE"; a key alone sets a boolean option. Unknown keys are
 * ignored unless the line "strict" is there. All texts are zero-terminated byte strings, compared exactly.
 *
 * Texts handed out. A function that gives a text takes a buffer and a pointer to its size in bytes. Nothing
 * is ever written past that size; with a size of 0 the buffer may be null. There are two rules for the size:
 *
 *     rule           used by                          fits: size becomes   too small (result 12):
 *     listing rule   QV_IO_EnumerateDevices,          length of the text   size becomes length + 1,
 *                    QV_IO_EnumerateInterfaces,                            buffer untouched
 *                    QV_IO_GetErrorEventData,
 *                    QV_IO_GetDiscoveryEventData
 *     property rule  QV_IO_GetProperty                length of the text   size becomes length,
 *                                                                          buffer holds the empty text
 *
 * The length never counts the terminating zero byte; the text fits when the size is at least length + 1.
 *
 * Threads. Every function may be called from any thread at any time. Each open handle has one receive
 * thread of its own, which calls the two callbacks given to QV_IO_Open, one call at a time; callbacks of
 * different handles may run at the same moment. Threads of the library, and those that FTDI's driver starts
 * in its calls, block all signals; the library's have stacks of 1 MiB. Callbacks must not throw.
 *
 * What may be called from inside a callback ("own" is the handle that the callback belongs to):
 *
 *     function                          receive, error callback       event callback
 *     QV_IO_GetVersion                  yes                           yes
 *     QV_IO_GetLocatorInterfaceType     yes                           yes
 *     QV_IO_CanEnumerateDevices         yes                           yes
 *     QV_IO_EnumerateDevices            yes                           yes; network devices as they are
 *                                                                     known, without a search
 *     QV_IO_EnumerateInterfaces         yes                           yes
 *     QV_IO_SetGlobalOptions            yes                           no: deadlock
 *     QV_IO_SetEventCallback            yes                           no: deadlock
 *     QV_IO_GetErrorEventData           no event to read there        yes
 *     QV_IO_GetDiscoveryEventData       no event to read there        yes
 *     QV_IO_Open                        yes                           no: deadlock
 *     QV_IO_Close, another handle       yes; with wait, two callbacks no: deadlock
 *                                       must not close each other
 *     QV_IO_Close, own handle           yes; never waits              -
 *     QV_IO_Send                        yes; receiving on the own     no: deadlock
 *                                       handle pauses
 *     QV_IO_GetProperty                 yes                           no: deadlock
 *
 * The event callback runs with the lock held that the functions marked "deadlock" need; that makes
 * QV_IO_SetEventCallback a barrier. For the same reason it should return soon, and must not wait for another
 * thread that is inside a function of the library. An enumeration of network devices inside it does not
 * search, since it would wait for itself.
 *
 * End. A process may end at any time, with handles open and interfaces watched, also by exit in a callback:
 * open channels are closed as by QV_IO_Close without wait, and their threads get up to 2 s to end. dlclose
 * does the same. Before dlclose an application must make sure that no other thread is inside a function of
 * the library and that its callbacks return: close the handles with wait, set a null event callback and watch
 * nothing. A callback that still runs 2 s later would return into unmapped code. A callback may end its
 * thread by pthread_exit; the handle then stays silent until it is closed.
 *
 * Signals, cancellation and fork. Signal handlers of the application run on its own threads; interrupted
 * system calls are repeated. No function raises a signal. A thread that is cancelled inside a function ends
 * when the function returns. Every descriptor is close-on-exec. A forked child starts afresh: it has none of
 * the parent's handles and watches (QV_IO_ERROR_INVALID_HANDLE), everything else works as in a new process,
 * and the parent notices nothing, not even the end of the child. If a callback forks and returns in the
 * child, its thread ends there. FTDI's driver itself may not support fork: open USB devices in one of the two
 * processes only, either before the fork or after it. */
#ifndef QUORVIO_QUORVIO_H
#define QUORVIO_QUORVIO_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#pragma GCC visibility push(default)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** Result codes. Every function returns one; the numbers never change. */
enum {
  QV_IO_OK = 0,
  /** QV_IO_Open: all 64 handles are in use; the device was opened and released again. */
  QV_IO_ERROR_NO_FREE_HANDLE = 1,
  /** The locator has no known interface word before its first ":", or fields that do not fit its kind. */
  QV_IO_ERROR_INVALID_LOCATOR = 2,
  /** No such device: not attached, not discovered, host unknown or unreachable. */
  QV_IO_ERROR_DEVICE_NOT_FOUND = 3,
  /** An option text was rejected, a number is out of its range, or a pointer is null. */
  QV_IO_ERROR_INVALID_ARGUMENT = 4,
  /** A driver or system call failed; errno is not preserved. */
  QV_IO_ERROR_DRIVER_FAILURE = 5,
  /** The handle is above 63 or not open. */
  QV_IO_ERROR_INVALID_HANDLE = 6,
  /** The peer closed or reset the link, or the USB chip is gone. */
  QV_IO_ERROR_CONNECTION_LOST = 7,
  /** Reading from the device failed. */
  QV_IO_ERROR_RECEIVE_FAILED = 8,
  /** Not all bytes could be written. */
  QV_IO_ERROR_TRANSMIT_FAILED = 9,
  /** The operation does not exist for this kind of interface. */
  QV_IO_ERROR_NOT_SUPPORTED = 10,
  /** The channel has no such property. */
  QV_IO_ERROR_PROPERTY_UNAVAILABLE = 11,
  /** The caller's text buffer is too small; the size was updated. */
  QV_IO_ERROR_BUFFER_TOO_SMALL = 12,
  /** The driver could not list the devices. */
  QV_IO_ERROR_QUERY_FAILED = 13,
  /** FTDI's driver libraries (libftd2xx.so, libftchipid.so) could not be loaded. */
  QV_IO_ERROR_DRIVER_UNAVAILABLE = 14,
  /** The event is of another type than the function reads. */
  QV_IO_ERROR_WRONG_EVENT_TYPE = 15
};

/** Kinds of interface. */
enum {
  QV_IO_INTERFACE_USB = 1,     /**< locator word "usb" */
  QV_IO_INTERFACE_NETWORK = 2, /**< locator word "network" */
  QV_IO_INTERFACE_SERIAL = 3,  /**< locator word "serial" */
  QV_IO_INTERFACE_ALL = 9999   /**< all kinds; only QV_IO_EnumerateDevices takes it */
};

/** Types of global events. */
enum {
  QV_IO_EVENT_ERROR = 0,        /**< read with QV_IO_GetErrorEventData; this version raises none */
  QV_IO_EVENT_DEVICE_FOUND = 1, /**< a network device appeared; read with QV_IO_GetDiscoveryEventData */
  QV_IO_EVENT_DEVICE_LOST = 2   /**< a network device is gone or busy; as above */
};

/** Handles are 0 to QV_IO_HANDLE_COUNT - 1. Handle 0 is an ordinary handle. */
enum { QV_IO_HANDLE_COUNT = 64 };

/** The most bytes that one call of a receive callback brings. */
enum { QV_IO_RECEIVE_CHUNK = 1024 };

/** A global event. Its first member is the uint32_t event type; the rest is read through
 * QV_IO_GetErrorEventData and QV_IO_GetDiscoveryEventData, during the callback only. */
typedef struct QV_IO_Event QV_IO_Event;

/** Received bytes, in the order of arrival. Called on the handle's receive thread.
 * @param userData  as given to QV_IO_Open
 * @param data      the bytes, valid during the call only
 * @param length    bytes, at most QV_IO_RECEIVE_CHUNK. A serial port or USB may bring 0 (an empty read).
 *                  When a read of a serial port fails and the handle has no error callback, the length is
 *                  (size_t)-1: nothing was read and data must not be used. */
typedef void (*QV_IO_ReceiveCallback)(void* userData, const uint8_t* data, size_t length);

/** A failure on the receiving side. Called on the handle's receive thread.
 * The channel stays open and goes on: a peer that is gone is reported about a hundred times a second, a USB
 * chip that is gone once in a `health-check` period, until the handle is closed.
 * @param userData    as given to QV_IO_Open
 * @param resultCode  QV_IO_ERROR_CONNECTION_LOST or QV_IO_ERROR_RECEIVE_FAILED */
typedef void (*QV_IO_ErrorCallback)(void* userData, uint32_t resultCode);

/** A network device was found or lost. Called on a discovery thread of the library, a search thread for
 * devices that did not answer a search, with the library's global lock held: see the table at the top for
 * what must not be called from here. The events of an interface come in the order in which its list of
 * devices changes.
 * @param userData   as given to QV_IO_SetEventCallback
 * @param eventType  QV_IO_EVENT_DEVICE_FOUND or QV_IO_EVENT_DEVICE_LOST
 * @param event      the record, valid during the call only */
typedef void (*QV_IO_EventCallback)(void* userData, uint32_t eventType, const QV_IO_Event* event);

/** The library's version, 2.1.2.
 * @return QV_IO_OK; QV_IO_ERROR_INVALID_ARGUMENT: a pointer is null, nothing is written. */
uint32_t QV_IO_GetVersion(uint32_t* major, uint32_t* minor, uint32_t* update);

/** The kind of interface that a locator names, by the word before its first ":". The rest is not checked.
 * @param interfaceType  receives QV_IO_INTERFACE_USB, _NETWORK or _SERIAL; 0 on failure
 * @param locator        zero-terminated
 * @return QV_IO_OK; QV_IO_ERROR_INVALID_LOCATOR: no ":", an unknown word, or null;
 *         QV_IO_ERROR_INVALID_ARGUMENT: interfaceType is null. */
uint32_t QV_IO_GetLocatorInterfaceType(uint32_t* interfaceType, const char* locator);

/** Whether QV_IO_EnumerateDevices lists the devices of one kind of interface alone.
 * @param interfaceType  any number
 * @param canEnumerate   receives 1 for QV_IO_INTERFACE_USB (driver present or not) and 0 for all others;
 *                       QV_IO_INTERFACE_ALL is not a single kind
 * @return QV_IO_OK; QV_IO_ERROR_INVALID_ARGUMENT: canEnumerate is null. */
uint32_t QV_IO_CanEnumerateDevices(uint32_t interfaceType, uint32_t* canEnumerate);

/** Lists devices as text (listing rule).
 *
 * QV_IO_INTERFACE_ALL: options `iface-type` "usb", "network", "serial" or "all" (at least one line) and what
 * to write: `only-locator` for one locator a line, or `include-KEY` (`include-all`) for one record a line
 * with items KEY=VALUE joined by "|" and sorted by key; in values "%", line feed, "|" and "=" are written
 * `%25`, `%0A`, `%7C`, `%3D`. Keys: iface-type, locator, device-sn, available, protocol-id (USB and network);
 * usb-id, usb-pid, usb-vid, usb-desc (USB); device-type, device-info, iface, network-host, network-port
 * (network). Filters: `find-only-available` (default true), `find-protocol-id`, `find-usb-pid`,
 * `find-usb-vid`, `find-usb-product-name`, `find-device-sn`, `find-device-type`. Network search: `iface`
 * "network:ADDRESS" (of a local interface) or "network:all", one line each; all that can be used are searched
 * at once, and the call takes the whole `discovery-timeout` ms (default 100). A datagram can get lost: ask
 * again where that matters. An address that is not local finds nothing. `force-rescan`: read the
 * list of USB chips again, which may be 1.5 s old. At most 16,384 devices of an interface are kept. A device
 * whose serial number holds a control character has no locator. `locator-format-usb` "sn" or "id",
 * `locator-format-network` "sn" or "host". Serial ports cannot be listed: a list that includes them answers
 * QV_IO_ERROR_NOT_SUPPORTED as a whole.
 *
 * QV_IO_INTERFACE_USB: one locator a line; options `canonical-locator`, or `include-sn`, `include-id`,
 * `include-ds`, `include-usb-vid`, `include-usb-pid`; `product-name`, `usb-vid`, `usb-pid`, `force-rescan`.
 *
 * @param interfaceType  QV_IO_INTERFACE_ALL or QV_IO_INTERFACE_USB
 * @param options        may be null (the empty text)
 * @param buffer         receives the text
 * @param size           bytes of the buffer on entry; on return as the listing rule says
 * @return QV_IO_OK, no devices included; QV_IO_ERROR_INVALID_ARGUMENT: options rejected, nothing selected,
 *         no `iface-type`, or a null pointer; QV_IO_ERROR_NOT_SUPPORTED: a kind that cannot be listed;
 *         QV_IO_ERROR_BUFFER_TOO_SMALL; QV_IO_ERROR_QUERY_FAILED; QV_IO_ERROR_DRIVER_UNAVAILABLE. */
uint32_t QV_IO_EnumerateDevices(uint32_t interfaceType, const char* options, char* buffer, size_t* size);

/** Lists the local interfaces as text (listing rule): `iface-type` "network" and `only-KEY` for one value a
 * line or `include-KEY` for records; keys iface-type, name, network-host, network-subnet-mask.
 * "usb", "serial" and "all" answer QV_IO_ERROR_NOT_SUPPORTED.
 * @return as QV_IO_EnumerateDevices. */
uint32_t QV_IO_EnumerateInterfaces(const char* options, char* buffer, size_t* size);

/** Sets the options that hold for the whole process.
 *
 * `discovery-iface` "network:ADDRESS" (of a local interface), "network:all" or "network:none", one line each:
 * where network devices are watched. Each call replaces the list, so that one without `discovery-iface`
 * watches nothing. A watched device that appears, becomes available or unavailable, or does not answer a
 * search raises a global event; a device that falls silent is noticed by a search only
 * (QV_IO_EnumerateDevices). An interface that is removed and comes back with its address is watched again:
 * from the next search on, or within 6 s. On return no event is delivered for an interface
 * that is no longer watched.
 *
 * `locator-format-network` "sn" or "host": the locators in those events; stays as it is without the line.
 *
 * @param options  may be null (the empty text)
 * @return QV_IO_OK; QV_IO_ERROR_INVALID_ARGUMENT: options rejected, after which nothing has changed but the
 *         locator format if an interface text was invalid; or an interface cannot be watched, such as one
 *         that is not local, and then the others of the list are watched. */
uint32_t QV_IO_SetGlobalOptions(const char* options);

/** Sets the one callback for global events. When the call returns, the callback set before is not running
 * and is never entered again.
 * @param callback  null switches events off
 * @param userData  given back as the callback's first argument
 * @return QV_IO_OK. */
uint32_t QV_IO_SetEventCallback(QV_IO_EventCallback callback, void* userData);

/** Reads an event of type QV_IO_EVENT_ERROR: its message (listing rule) and its code.
 * @param event      as the callback got it
 * @param errorCode  written on success only
 * @param buffer     receives the message
 * @param size       as QV_IO_EnumerateDevices
 * @return QV_IO_OK; QV_IO_ERROR_WRONG_EVENT_TYPE: another type or null, nothing is written;
 *         QV_IO_ERROR_BUFFER_TOO_SMALL; QV_IO_ERROR_INVALID_ARGUMENT: a pointer is null. */
uint32_t QV_IO_GetErrorEventData(const QV_IO_Event* event, uint32_t* errorCode, char* buffer, size_t* size);

/** Reads the device of an event of type QV_IO_EVENT_DEVICE_FOUND or QV_IO_EVENT_DEVICE_LOST (listing rule).
 * @param event    as the callback got it
 * @param options  `only-locator`, or `include-KEY` with the network keys of QV_IO_EnumerateDevices; may be
 *                 null (the empty text: no key, an empty text)
 * @param buffer   receives the text
 * @param size     as QV_IO_EnumerateDevices
 * @return QV_IO_OK; QV_IO_ERROR_WRONG_EVENT_TYPE: another type or null; QV_IO_ERROR_BUFFER_TOO_SMALL;
 *         QV_IO_ERROR_INVALID_ARGUMENT: options rejected or a pointer is null. */
uint32_t QV_IO_GetDiscoveryEventData(const QV_IO_Event* event, const char* options, char* buffer,
                                     size_t* size);

/** Opens a device and starts its receive thread.
 *
 * Options of a serial port, which has 8 data bits, no parity, 1 stop bit and no flow control; modem lines are
 * ignored:
 *   - `baudrate N`: needed. The speeds are 50, 75, 110, 134, 150, 200, 300, 600, 1200, 1800, 2400, 4800,
 *     9600, 19200, 38400, 57600, 115200 and 230400; any other is rounded down without notice, so 500000 runs
 *     at 230400 and 100000 at 57600 (below 75: 50)
 *   - `xonxoff`: kept for compatibility; leave it out. It does not switch flow control on: it sets the
 *     control bits 0x1400 (hang up on close, and the bit that selects the upper speeds), which changes the
 *     line speed for every speed below 57600
 *
 * Options of a TCP link, on which no socket option is set:
 *   - `port N`: when the locator gives none or 0
 *   - `connect-timeout N`: ms for each address of the host, default 5000; resolving a name takes its own time
 *   - `iface TEXT`: "network:ADDRESS" or "network:all": where a serial number is searched that is not known,
 *     or whose device was last heard more than 10 s ago on an interface that is not watched; may be repeated.
 *     Without it the device is used as it was heard last, up to an hour ago
 *   - `discovery-timeout N`: ms for that search, default 100; it ends as soon as the device has answered
 *
 * Over TCP a success does not prove that there is a peer: a refused connection can pass here, and the error
 * callback then reports QV_IO_ERROR_CONNECTION_LOST.
 *
 * Options of a USB link:
 *   - `baudrate N`: line speed; without it the chip's configuration or the product decides, and a product
 *     without a speed of its own needs the option
 *   - `ftdi-flow-control`: "none", "rtscts" or "dtrdsr"; without it as for the speed
 *   - `health-check N`: ms, 0 or 50 and above, default 250: how soon an unplugged chip is noticed; it is
 *     reported as QV_IO_ERROR_CONNECTION_LOST once in that time. 0: only when bytes come
 *   - `tx-timeout N`: ms, default 1000: a send that takes longer fails. The driver holds a write that long,
 *     and closing waits for it; with 0 the driver may hold it without limit
 *   - `rx-timeout N`: ms, default 1000: the driver's, for one read
 *   - `ftdi-latency N`: ms, 1 to 255, default 2: how long the chip collects bytes
 *   - `product-name TEXT`: only a chip with this description; may be repeated
 *
 * "usb:ix:INDEX" counts the chips that are not open and pass `product-name`.
 *
 * @param handle     receives the lowest free handle; 0 on failure, which is also a valid handle: test the
 *                   result, not the handle. Callbacks may run before the call returns.
 * @param locator    names the device; the forms are at the top
 * @param options    may be null (the empty text)
 * @param userData   given back as the first argument of both callbacks; QV_IO_Close says when it may be
 *                   freed
 * @param onReceive  when null, received bytes are discarded
 * @param onError    may be null
 * @return QV_IO_OK; QV_IO_ERROR_NO_FREE_HANDLE; QV_IO_ERROR_INVALID_LOCATOR; QV_IO_ERROR_DEVICE_NOT_FOUND;
 *         QV_IO_ERROR_INVALID_ARGUMENT: options, a port number, no `baudrate`, handle is null;
 *         QV_IO_ERROR_DRIVER_FAILURE: the port or link could not be opened or set up;
 *         QV_IO_ERROR_DRIVER_UNAVAILABLE: USB. A failed open leaves no trace. */
uint32_t QV_IO_Open(uint32_t* handle, const char* locator, const char* options, void* userData,
                    QV_IO_ReceiveCallback onReceive, QV_IO_ErrorCallback onError);

/** Closes a handle. Its number is free at once: the next QV_IO_Open may give it out again.
 *
 * Bytes that were received but not handed out yet are discarded. What has been sent still goes out, within
 * limits: a serial port or TCP link waits until its device has taken no byte for 1 s, and at most until 5 s
 * after the close began.
 *
 *   - A send in progress on another thread goes on within these limits; then it ends with
 *     QV_IO_ERROR_TRANSMIT_FAILED.
 *   - A serial port is released once all sent bytes have left the system; bytes that are left at the limit
 *     are dropped.
 *   - A TCP link whose peer has sent anything is released once the peer's system has all sent bytes; what the
 *     peer sends until then is discarded. If the peer has never sent anything, the link is released at once
 *     and the system delivers the rest.
 *   - At USB a send ends with its write in progress, at the latest after `tx-timeout`.
 *
 * @param handle  an open handle
 * @param wait    not 0: returns when the device is released and no callback of the handle runs or will run;
 *                then the user data may be freed.
 *                0: returns at once. A callback may run or start until the receive thread has noticed, and
 *                nothing reports that: keep the user data for the rest of the process, or close with wait.
 *                Inside a callback of the same handle the call never waits. No other callback starts after
 * it, so the user data may be freed at the end of this callback.
 * @return QV_IO_OK; QV_IO_ERROR_INVALID_HANDLE. */
uint32_t QV_IO_Close(uint32_t handle, uint32_t wait);

/** Sends bytes in order and returns when the system has taken all of them.
 *
 * Blocks while the device takes no more. Threads: any; sends on one serial or TCP handle do not interleave,
 * those on a USB handle may.
 *
 * Send a request in one call: over TCP a second short send waits until the peer has acknowledged the first,
 * which takes about 40 ms with most systems.
 *
 * @param handle  an open handle
 * @param data    `length` bytes, read only during the call; may be null when length is 0
 * @param length  bytes; 0 returns QV_IO_OK without touching the device
 * @return QV_IO_OK; QV_IO_ERROR_INVALID_HANDLE; QV_IO_ERROR_CONNECTION_LOST: the peer reset the link, or the
 *         USB chip is gone;
 *         QV_IO_ERROR_TRANSMIT_FAILED: anything else, including a close during the send;
 *         QV_IO_ERROR_INVALID_ARGUMENT: data is null. After a failure some bytes may have arrived. */
uint32_t QV_IO_Send(uint32_t handle, const void* data, size_t length);

/** Reads a property of an open channel as text (property rule: not the size of the listing rule).
 * USB: `ftdi-id`, the chip's id in decimal; other keys QV_IO_ERROR_PROPERTY_UNAVAILABLE. TCP: none, every
 * key gives QV_IO_ERROR_PROPERTY_UNAVAILABLE and the empty text. Serial: every key gives the empty text.
 * @return QV_IO_OK; QV_IO_ERROR_INVALID_HANDLE; QV_IO_ERROR_PROPERTY_UNAVAILABLE;
 *         QV_IO_ERROR_BUFFER_TOO_SMALL; QV_IO_ERROR_NOT_SUPPORTED: the chip's id cannot be read;
 *         QV_IO_ERROR_INVALID_ARGUMENT: a pointer is null. */
uint32_t QV_IO_GetProperty(uint32_t handle, const char* key, char* buffer, size_t* size);

#ifdef __cplusplus
}
#endif

#if defined(__GNUC__)
#pragma GCC visibility pop
#endif

#endif
