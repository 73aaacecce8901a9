#include <gtest/gtest.h>

#include <tuple>

#include "io/io_serial.h"

namespace qvio {
namespace {

TEST(LineSettings, RoundTheSpeedDown) {
  const struct {
    uint32_t baudrate;
    speed_t constant;
  } rows[] = {
      {1, B50},          {49, B50},         {50, B50},         {74, B50},          {75, B75},
      {9600, B9600},     {10000, B9600},    {57599, B38400},   {100000, B57600},   {115200, B115200},
      {230399, B115200}, {230400, B230400}, {500000, B230400}, {1000000, B230400}, {4294967295, B230400}};
  for (const auto& row : rows) {
    const auto settings = LineSettings(row.baudrate, false);
    EXPECT_EQ(cfgetispeed(&settings), row.constant) << row.baudrate;
    EXPECT_EQ(cfgetospeed(&settings), row.constant) << row.baudrate;
  }
}

TEST(LineSettings, AreRawWithEightDataBits) {
  const auto settings = LineSettings(9600, false);
  EXPECT_EQ(settings.c_cflag, B9600 | 0x8B0U);
  EXPECT_EQ(std::tuple(settings.c_iflag, settings.c_oflag, settings.c_lflag), std::tuple(0U, 0U, 0U));
  for (const auto character : settings.c_cc) EXPECT_EQ(character, 0);
}

TEST(LineSettings, PutXonXoffIntoTheControlWord) {
  const auto plain = LineSettings(9600, false);
  const auto settings = LineSettings(9600, true);
  EXPECT_EQ(settings.c_cflag, plain.c_cflag | 0x1400U);
  EXPECT_EQ(settings.c_iflag, 0U);
}

}  // namespace
}  // namespace qvio
