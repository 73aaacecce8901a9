#include "doctor/elf_file.h"

#include <elf.h>
#include <link.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string_view>
#include <utility>

#include "util/lookup.h"

namespace qvio_tool {
namespace {

constexpr std::array<std::pair<uint16_t, const char*>, 6> kMachines{{{EM_X86_64, "x86-64"},
                                                                     {EM_386, "i386"},
                                                                     {EM_AARCH64, "arm64"},
                                                                     {EM_ARM, "arm"},
                                                                     {EM_RISCV, "riscv"},
                                                                     {EM_S390, "s390"}}};

/// The bytes of a file, read within their bounds: the file may be damaged.
class Image {
 public:
  explicit Image(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    bytes_.assign(std::istreambuf_iterator<char>(in), {});
  }

  /// The record at an offset; all zero where the file is too short.
  template <class Record>
  [[nodiscard]] Record at(uint64_t offset) const {
    Record record{};
    if (offset <= bytes_.size() && sizeof record <= bytes_.size() - offset)
      std::memcpy(&record, bytes_.data() + offset, sizeof record);
    return record;
  }

  /// The text at an offset up to its zero byte.
  [[nodiscard]] std::string text(uint64_t offset) const {
    return offset < bytes_.size() ? bytes_.c_str() + offset : "";
  }

  [[nodiscard]] std::size_t size() const { return bytes_.size(); }

 private:
  std::string bytes_;
};

}  // namespace

std::string ElfKind::text() const {
  const auto* const name = cppu::Lookup(kMachines, machine);
  return (name != nullptr ? *name : "machine " + std::to_string(machine)) + ", " + std::to_string(bits) +
         " bits";
}

std::optional<ElfKind> KindOf(const std::filesystem::path& file) {
  // The machine has the same place in files of 32 and 64 bits.
  std::array<unsigned char, offsetof(Elf32_Ehdr, e_machine) + sizeof(uint16_t)> head{};
  std::ifstream in(file, std::ios::binary);
  in.read(reinterpret_cast<char*>(head.data()), head.size());
  if (!in || std::memcmp(head.data(), ELFMAG, SELFMAG) != 0) return {};
  const bool isLittle = head[EI_DATA] == ELFDATA2LSB;
  const auto low = head[head.size() - (isLittle ? 2 : 1)];
  const auto high = head[head.size() - (isLittle ? 1 : 2)];
  return ElfKind{.bits = static_cast<uint8_t>(head[EI_CLASS] == ELFCLASS64 ? 64 : 32),
                 .byteOrder = head[EI_DATA],
                 .machine = static_cast<uint16_t>(high << 8U | low)};
}

std::set<std::string> ExportsOf(const std::filesystem::path& file) {
  const Image image(file);
  const auto header = image.at<ElfW(Ehdr)>(0);
  const auto section = [&](uint64_t index) {
    return image.at<ElfW(Shdr)>(header.e_shoff + index * sizeof(ElfW(Shdr)));
  };
  std::set<std::string> names;
  for (unsigned index = 0; index < header.e_shnum; ++index) {
    const auto symbols = section(index);
    if (symbols.sh_type != SHT_DYNSYM) continue;
    const auto strings = section(symbols.sh_link);
    const auto count = std::min<uint64_t>(symbols.sh_size, image.size()) / sizeof(ElfW(Sym));
    for (uint64_t i = 0; i < count; ++i) {
      const auto symbol = image.at<ElfW(Sym)>(symbols.sh_offset + i * sizeof(ElfW(Sym)));
      if (symbol.st_shndx != SHN_UNDEF) names.insert(image.text(strings.sh_offset + symbol.st_name));
    }
  }
  return names;
}

}  // namespace qvio_tool
