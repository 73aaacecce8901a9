#pragma once

#include <string>

namespace qvio_tool {

inline constexpr const char* kApplicationLibrary = "libquorvio.so.2";

/// The shared library that the dynamic linker finds for an application in the same environment.
struct ApplicationLibrary {
  std::string path;
  std::string version;  ///< empty: it is another library of that name
  std::string problem;  ///< why none is found; empty: one is
};

/// Loads and unloads it.
ApplicationLibrary FindApplicationLibrary();

/// The version of the library that this program has built in.
std::string BuiltInVersion();

}  // namespace qvio_tool
