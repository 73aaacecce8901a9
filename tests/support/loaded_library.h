#pragma once

#include <dlfcn.h>

#include <memory>

namespace qvtest {

/// The shared library, loaded by a program that is not linked with it; unloaded at the end.
class LoadedLibrary {
 public:
  LoadedLibrary() : library_(::dlopen(QUORVIO_LIBRARY_FILE, RTLD_NOW | RTLD_LOCAL), ::dlclose) {}
  [[nodiscard]] bool isLoaded() const { return library_ != nullptr; }

  template <class Function>
  [[nodiscard]] Function* find(const char* name) const {
    return reinterpret_cast<Function*>(::dlsym(library_.get(), name));
  }

 private:
  std::unique_ptr<void, int (*)(void*)> library_;
};

}  // namespace qvtest
