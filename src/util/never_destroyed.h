#pragma once

namespace cppu {

/// An object in static storage that is built once and never destroyed, so that threads still running while
/// the process exits touch nothing dead.
template <class T>
union NeverDestroyed {
  constexpr NeverDestroyed() : value() {}
  ~NeverDestroyed() {}  // NOLINT(modernize-use-equals-default): a defaulted one would be deleted

  T value;
};

}  // namespace cppu
