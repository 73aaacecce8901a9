// The list of chips and their users, from a copy of the kernel's files.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <system_error>

#include "driver/channel_list.h"

namespace qvtest {
namespace {

namespace fs = std::filesystem;
using Files = std::map<std::string, std::string>;  // "-> x": a link

class Tree {
 public:
  explicit Tree(const Files& files) {
    std::string pattern = testing::TempDir() + "channelsXXXXXX";
    root_ = ::mkdtemp(pattern.data());
    for (const auto& [path, content] : files) add(root_ / path, content);
  }
  Tree(const Tree&) = delete;
  Tree& operator=(const Tree&) = delete;
  ~Tree() { fs::remove_all(root_); }

  [[nodiscard]] const fs::path& root() const { return root_; }

 private:
  static void add(const fs::path& path, const std::string& content) {
    fs::create_directories(path.parent_path());
    if (content.starts_with("-> ")) return fs::create_symlink(content.substr(3), path);
    std::ofstream(path) << content << '\n';
  }

  fs::path root_;
};

Files Chip(const std::string& name, const std::string& release, const std::string& address,
           const std::string& speed) {
  const auto folder = "sys/bus/usb/devices/" + name;
  Files files{{folder + "/idVendor", "0403"},   {folder + "/idProduct", "6010"},
              {folder + "/bcdDevice", release}, {folder + "/busnum", "1"},
              {folder + "/devnum", address},    {folder + "/speed", speed},
              {folder + "/product", "Motor"},   {folder + "/serial", "S" + address}};
  for (const auto* const number : {"0", "1"})
    files[folder + ":1." + number + "/ep_8" + (*number == '0' ? '1' : '3') + "/wMaxPacketSize"] =
        speed == "480" ? "0200" : "0040";
  return files;
}

/// "S5 Motor 6/480/512; ..." with "open" where it is.
std::string Listed(const Files& files) {
  const Tree tree(files);
  std::string text;
  for (const auto& channel : qvusb::ListChannels(tree.root())) {
    text += text.empty() ? "" : "; ";
    text += channel.serialNumber + ' ' + channel.description + ' ' + std::to_string(channel.kind.type) + '/' +
            (channel.runsAtHighSpeed ? "high/" : "full/") + std::to_string(channel.packetSize) +
            (channel.isOpen ? " open" : "");
  }
  return text;
}

TEST(OwnDriver, ListsTheChannelsOfKnownChipsInTheirOrder) {
  EXPECT_EQ(Listed({}), "");
  auto files = Chip("1-2", "0600", "12", "12");
  files.merge(Chip("1-1", "0700", "7", "480"));
  files.merge(Chip("1-3", "0123", "3", "12"));
  auto foreign = Chip("1-4", "0600", "4", "12");
  foreign["sys/bus/usb/devices/1-4/idVendor"] = "1234";
  files.merge(foreign);
  EXPECT_EQ(Listed(files), "S7A Motor A 6/high/512; S7B Motor B 6/high/512; S12 Motor 5/full/64");
  files.erase("sys/bus/usb/devices/1-2/serial");
  files.erase("sys/bus/usb/devices/1-1:1.1/ep_83/wMaxPacketSize");
  EXPECT_EQ(Listed(files), "S7A Motor A 6/high/512;  Motor 5/full/64") << "about to be unplugged";
}

TEST(OwnDriver, FailsRatherThanListTooLittle) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "UndefinedBehaviorSanitizer looks at exceptions by means of a pipe";
#endif
  const Tree tree(Chip("1-1", "0700", "7", "480"));
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit none{0, limit.rlim_max};
  ::setrlimit(RLIMIT_NOFILE, &none);
  EXPECT_THROW(qvusb::ListChannels(tree.root()), std::system_error);
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

TEST(OwnDriver, SeesWhoUsesAChip) {
  auto base = Chip("1-1", "0600", "1", "12");
  base.merge(Chip("1-2", "0600", "2", "12"));
  const std::string interface = "sys/bus/usb/devices/1-1:1.0/";
  const Files serialPorts{{interface + "driver", "-> ../../drivers/ftdi_sio"},
                          {interface + "ttyUSB0/uevent", ""},
                          {"sys/bus/usb/devices/1-2:1.0/ttyUSB1/uevent", ""},
                          {"sys/bus/usb-serial/drivers/ftdi_sio/ttyUSB0", "-> x"},
                          {"sys/bus/usb-serial/drivers/ftdi_sio/ttyUSB1", "-> x"},
                          {"sys/bus/usb-serial/drivers/ftdi_sio/bind", ""}};
  const std::string count = "sys/module/ftdi_sio/refcnt";
  const Files holder{{"proc/77/fd/3", "-> /dev/ttyUSB0"}, {"proc/77/fd/4", "-> /dev/null"}};
  const auto with = [&](const std::vector<Files>& more) {
    auto files = base;
    for (auto one : more) files.merge(one);
    return Listed(files);
  };
  const std::string first = "S1 Motor 5/full/64";
  const std::string second = "S2 Motor 5/full/64";
  const struct {
    const char* name;
    std::vector<Files> files;
    std::string listed;
  } rows[] = {
      {"free", {}, first + "; " + second},
      {"by usbfs", {{{interface + "driver", "-> ../usbfs"}}}, first + " open; " + second},
      {"as a port, by nobody", {serialPorts, {{count, "0"}}}, first + "; " + second},
      {"as a port", {serialPorts, holder, {{count, "1"}}}, first + " open; " + second},
      {"the kernel does not count", {serialPorts, holder}, first + " open; " + second},
      {"by one that is not seen", {serialPorts, {{count, "1"}}}, first + " open; " + second + " open"},
      {"by another one too", {serialPorts, holder, {{count, "2"}}}, first + " open; " + second + " open"}};
  for (const auto& row : rows) EXPECT_EQ(with(row.files), row.listed) << row.name;
}

}  // namespace
}  // namespace qvtest
