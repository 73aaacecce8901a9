#pragma once

#include <stdexcept>

namespace quorvind {

/// What the discovery protocol may throw.
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

}  // namespace quorvind
