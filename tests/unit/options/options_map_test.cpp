#include "options/options_map.h"

#include <gtest/gtest.h>

#include <vector>

namespace cppu {
namespace {

using Items = std::vector<OptionsMap::Item>;

TEST(OptionsMap, SplitsLinesAtTheFirstSpaceOnly) {
  const struct {
    std::string_view text;
    Items items;
  } rows[] = {{"", {}},
              {" \t\r\n\n", {}},
              {"baudrate 115200\n\n  xonxoff\r\n", {{"baudrate", "115200"}, {"xonxoff", ""}}},
              {"key=value", {{"key=value", ""}}},
              {"name  two  words ", {{"name", " two  words"}}},
              {"tab\tis no space", {{"tab\tis", "no space"}}},
              {"a %3D|b", {{"a", "%3D|b"}}}};
  for (const auto& row : rows) EXPECT_EQ(OptionsMap(row.text).items(), row.items) << row.text;
}

}  // namespace
}  // namespace cppu
