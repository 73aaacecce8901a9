#pragma once

#include <cerrno>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace quorvind {

/// Base of the exceptions of the discovery protocol.
class QuorviNDException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The host is in the wrong state for the call.
class InvalidOperationException : public QuorviNDException {
 public:
  using QuorviNDException::QuorviNDException;
};

class InvalidArgumentException : public QuorviNDException {
 public:
  using QuorviNDException::QuorviNDException;
};

/// A device answered with a payload that cannot be read.
class ProtocolException : public QuorviNDException {
 public:
  using QuorviNDException::QuorviNDException;
};

/// The host was destroyed while the request was pending.
class RequestCancelledException : public QuorviNDException {
 public:
  using QuorviNDException::QuorviNDException;
};

/// A system call of the transport failed.
class NetworkException : public QuorviNDException {
 public:
  using QuorviNDException::QuorviNDException;
};

/// Throws NetworkException with "TEXT: " and the system's text for the error.
[[noreturn]] inline void ThrowSystemFailure(std::string_view text, int error = errno) {
  throw NetworkException(std::string(text) + ": " + std::generic_category().message(error));
}

}  // namespace quorvind
