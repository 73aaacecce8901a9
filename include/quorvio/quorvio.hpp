/** @file
 * libquorvio for C++17 and later: header-only, on the functions of quorvio.h and nothing else.
 *
 *     quorvio::Channel device("network:192.168.0.10:5000", quorvio::Options().add("connect-timeout", 1000));
 *     std::string name = device.query("*IDN?\n", "\n", std::chrono::seconds(1));
 *
 * quorvio.h documents locators, options and what each result means; this header only says what it adds.
 *
 * Failures are thrown as quorvio::Error, a std::system_error whose code compares with quorvio::Errc:
 * `if (error.code() == quorvio::Errc::timedOut)`.
 *
 * Threads. Several threads may use one object at a time, close() included: it wakes those that wait in the
 * others. Moving and destroying need, as with any object, that no other thread is inside a member; a callback
 * of the object itself may do both.
 *
 * Fork. In a forked child the parent's objects are closed: their members throw Errc::invalidHandle, and they
 * can be destroyed, which the parent does not notice. The child may open its own. */
#ifndef QUORVIO_QUORVIO_HPP
#define QUORVIO_QUORVIO_HPP

#include "quorvio/detail/channel.hpp"
#include "quorvio/detail/device_watch.hpp"
#include "quorvio/detail/error.hpp"
#include "quorvio/detail/listing.hpp"
#include "quorvio/detail/options.hpp"
#include "quorvio/detail/reconnecting.hpp"

/** @namespace quorvio
 * Channels, lists and watches as objects; failures as exceptions. */

#endif
