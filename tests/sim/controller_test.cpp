#include "sim/controller.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

namespace qvsim {
namespace {

using namespace std::chrono_literals;

TEST(LineProtocol, AnswersEveryCommandWithOneLine) {
  const struct {
    std::string bytes;
    std::string answer;
  } rows[] = {{"*IDN?\n", "QUORVI,DRV-SIM,SN-7,1.0\r\n"},
              {"MOV 12.5\r\nPOS?\r\n", "OK\r\n12.500\r\n"},
              {"MOV -3\rPOS?\r", "OK\r\n-3.000\r\n"},
              {"\r\n\n\r", ""},
              {"MOV\n", "ERR 1 unknown command\r\n"},
              {"MOV x\n", "ERR 2 not a number\r\n"},
              {"MOV 1x\n", "ERR 2 not a number\r\n"},
              {"MOV inf\n", "ERR 2 not a number\r\n"},
              {"MOV 1000.1\n", "ERR 3 position out of range\r\n"},
              {"mov 1\n", "ERR 1 unknown command\r\n"},
              {std::string(257, 'x') + "\nPOS?\n", "ERR 4 line too long\r\n0.000\r\n"},
              {"POS?", ""}};
  for (const auto& row : rows) {
    const auto whole = ServeController({.serialNumber = "SN-7"});
    EXPECT_EQ(whole()->answer(row.bytes), row.answer);

    const auto cut = ServeController({.serialNumber = "SN-7"})();
    std::string answer;
    for (const char byte : row.bytes) answer += cut->answer({&byte, 1});
    EXPECT_EQ(answer, row.answer) << "byte by byte";
  }
}

TEST(Controller, MovesWithItsSpeedAndStops) {
  std::chrono::steady_clock::time_point now;
  Controller controller({.speed = 10}, [&] { return now; });
  EXPECT_EQ(controller.execute("MOV -20"), "OK");
  now += 500ms;
  EXPECT_EQ(controller.execute("POS?"), "-5.000");
  EXPECT_EQ(controller.execute("MOV?"), "1");
  EXPECT_EQ(controller.execute("MOV 5"), "OK");
  now += 500ms;
  EXPECT_EQ(controller.execute("POS?"), "0.000");
  EXPECT_EQ(controller.execute("STOP"), "OK");
  now += 10s;
  EXPECT_EQ(controller.execute("POS?"), "0.000");
  EXPECT_EQ(controller.execute("MOV?"), "0");
  EXPECT_EQ(controller.execute("MOV 5"), "OK");
  now += 10s;
  EXPECT_EQ(controller.execute("POS?"), "5.000");
}

TEST(Controller, IsSharedByItsConnections) {
  const auto connect = ServeController({});
  EXPECT_EQ(connect()->answer("MOV 7\n"), "OK\r\n");
  EXPECT_EQ(connect()->answer("POS?\n"), "7.000\r\n");
}

}  // namespace
}  // namespace qvsim
