// The program qvio-sim as a user starts it.

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "support/program.h"

namespace qvtest {
namespace {

TEST(Program, AnnouncesItsDeviceAndEndsCleanlyBySignal) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    Program network({"network", "--port", "0"});
    EXPECT_TRUE(network.line().starts_with("127.0.0.1:"));
    EXPECT_EQ(network.end(signal), 0);
  }
}

TEST(Program, LinksToItsTerminalWhileItRuns) {
  const auto link = std::filesystem::temp_directory_path() / ("qvio-sim-" + std::to_string(::getpid()));
  Program serial({"serial", "--link", link.string()});
  const auto path = serial.line();
  EXPECT_EQ(std::filesystem::read_symlink(link), path);
  Program second({"serial", "--link", link.string()});
  EXPECT_EQ(second.line(), "qvio-sim: cannot link " + link.string() + ": File exists");
  EXPECT_EQ(second.exitCode(), 1);
  EXPECT_EQ(std::filesystem::read_symlink(link), path) << "the other one's link stays";
  EXPECT_EQ(serial.end(SIGTERM), 0);
  EXPECT_FALSE(std::filesystem::is_symlink(link));
}

TEST(Program, RunsAProgramThatFindsTheStandInFirst) {
  Program found({"usb", "--", "sh", "-c", "ls ${LD_LIBRARY_PATH%%:*} | tr '\\n' ' '; exit 3"});
  EXPECT_NE(found.line().find("libftchipid.so libftd2xx.so"), std::string::npos);
  EXPECT_EQ(found.exitCode(), 3);
  Program missing({"usb", "--", "no-such-program"});
  EXPECT_EQ(missing.line(), "qvio-sim: cannot run no-such-program: No such file or directory");
  EXPECT_EQ(missing.exitCode(), 127);
}

TEST(Program, TellsWrongUsage) {
  const std::vector<std::string> rows[] = {{},
                                           {"other"},
                                           {"network", "--count", "3"},
                                           {"network", "--iface", "127.0.0.1", "--drop", "2"},
                                           {"network", "--port", "65536"},
                                           {"network", "--port", "0", "--listen", "host"},
                                           {"serial", "--speed", "-1"},
                                           {"usb"},
                                           {"serial", "--serial", "a,b"}};
  for (const auto& row : rows) {
    Program program(row);
    const auto line = program.line();
    EXPECT_TRUE(line.starts_with("qvio-sim: ")) << line;
    EXPECT_EQ(program.exitCode(), 2) << line;
  }
}

}  // namespace
}  // namespace qvtest
