#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <set>
#include <string>

namespace qvio_tool {

/// What a program and the libraries that it loads have in common.
struct ElfKind {
  uint8_t bits;       ///< 32 or 64
  uint8_t byteOrder;  ///< ELFDATA2LSB or ELFDATA2MSB
  uint16_t machine;   ///< EM_X86_64 for example

  bool operator==(const ElfKind&) const = default;

  /// "x86-64" for example.
  [[nodiscard]] std::string text() const;
};

/// The kind of a file; none if it is not an ELF file.
std::optional<ElfKind> KindOf(const std::filesystem::path& file);

/// The symbols that a shared library of this program's kind exports; none of a file that is damaged.
std::set<std::string> ExportsOf(const std::filesystem::path& file);

}  // namespace qvio_tool
