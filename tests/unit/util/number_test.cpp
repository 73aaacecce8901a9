#include "util/number.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace cppu {
namespace {

TEST(Booleans, KnowSevenLiterals) {
  for (const auto* text : {"", "true", "on", "1"}) EXPECT_TRUE(ToBool(text)) << text;
  for (const auto* text : {"false", "off", "0"}) EXPECT_FALSE(ToBool(text)) << text;
  for (const auto* text : {"TRUE", "yes", "2", " "})
    EXPECT_THROW(ToBool(text), std::invalid_argument) << text;
}

}  // namespace
}  // namespace cppu
