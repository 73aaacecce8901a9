// qvio with a stand-in for FTDI's driver, and without; and with libraries for applications.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "qvio/runner.h"

namespace qvtest {
namespace {

class QvioLibraries : public testing::Test {
 protected:
  static void findLibrariesIn(const std::string& folder) { ::setenv("LD_LIBRARY_PATH", folder.c_str(), 1); }
  ~QvioLibraries() override { ::unsetenv("LD_LIBRARY_PATH"); }
};

TEST_F(QvioLibraries, ListsAndTalksToChips) {
  findLibrariesIn(STAND_IN_FOLDER);
  const auto list = nlohmann::json::parse(RunQvio({"list", "--kind", "usb", "--json"}).output);
  ASSERT_EQ(list.size(), 4U);
  EXPECT_EQ(list[1]["locator"], "usb:sn:QV100002");
  EXPECT_EQ(list[1]["usb-vid"], 0x0403);
  const auto table = RunQvio({"list", "--kind", "usb", "--kind", "serial"});
  EXPECT_NE(table.output.find("usb:sn:QV100003"), std::string::npos) << table.output;
  EXPECT_EQ(table.errors, "");
  EXPECT_EQ(RunQvio({"send", "usb:sn:QV100001", "*IDN?"}).output, "QUORVI,DRV-SIM,QV100001,1.0\r\n");
  EXPECT_EQ(RunQvio({"open", "usb:ix:1", "--quiet-ms", "200"}, "MOV 2\nPOS?\n").output, "OK\r\n2.000\r\n");
}

TEST_F(QvioLibraries, SaysWhichLibraryApplicationsLoad) {
  const auto folder = std::filesystem::temp_directory_path() / ("qvio-" + std::to_string(::getpid()));
  std::filesystem::create_directory(folder);
  std::ofstream(folder / "libquorvio.so.2") << "not a library";
  findLibrariesIn(LIBRARY_FOLDER);
  ExpectText({{"version"},
              0,
              "qvio 2.1.2 with libquorvio 2.1.2 built in\n"
              "applications load libquorvio 2.1.2: " LIBRARY_FOLDER "/libquorvio.so.2\n"});
  findLibrariesIn(folder);
  ExpectText({{"version"}, 0, "applications find no libquorvio: " + folder.string()});
  std::filesystem::remove_all(folder);
}

TEST_F(QvioLibraries, SaysWhatIsWrongAndWhatHelps) {
  const struct {
    const char* folder;
    Expected expected;
  } rows[] = {
      {"/nowhere", {{"list", "--kind", "usb"}, 1, "note: usb: FTDI's driver cannot be used: libftd2xx.so: "}},
      {STAND_IN_FOLDER "/old", {{"list", "--kind", "usb"}, 1, "undefined symbol: "}},
      {STAND_IN_FOLDER,
       {{"send", "usb:sn:NOBODY", "x"},
        1,
        "no available chip has the serial number NOBODY\nqvio: hint: another program"}},
      {STAND_IN_FOLDER, {{"send", "usb:sn:QV100001", "x", "-o", "baudrate 0"}, 2, "qvio: baudrate is 0\n"}},
      {STAND_IN_FOLDER, {{"send", "usb:xx:1", "x"}, 2, "a locator is"}}};
  for (const auto& row : rows) {
    findLibrariesIn(row.folder);
    ExpectText(row.expected);
  }
}

}  // namespace
}  // namespace qvtest
