#pragma once

namespace cppu {

/// An object in static storage that is built once and never destroyed, so that threads that still run while
/// the process exits never use a destroyed object.
template <class T>
union NeverDestroyed {
  constexpr NeverDestroyed() : value() {}
  ~NeverDestroyed() {}  // NOLINT(modernize-use-equals-default): a defaulted one would be deleted

  T value;
};

}  // namespace cppu
