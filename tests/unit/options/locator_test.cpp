#include "options/locator.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "util/failure.h"

namespace qvio {
namespace {

TEST(Locator, HasAnExactInterfaceWordAndItsFieldsWithoutEmptyOnes) {
  const struct {
    std::string_view locator;
    uint32_t type;
    std::vector<std::string> fields;
  } rows[] = {{"usb:", 1, {}},    {"usb:sn:1", 1, {"sn", "1"}},   {"network:x", 2, {"x"}},
              {"serial:", 3, {}}, {"network::5000", 2, {"5000"}}, {"usb:::a:::b::", 1, {"a", "b"}}};
  for (const auto& row : rows) {
    const auto locator = ReadLocator(row.locator);
    EXPECT_EQ(locator.interfaceType, row.type) << row.locator;
    EXPECT_EQ(locator.fields, row.fields) << row.locator;
    EXPECT_EQ(locator.text, row.locator);
  }
  for (const auto* text : {"usb", "USB:sn:1", "serials:", " serial:", ":usb", "::usb:a", "", ":", "serial"}) {
    EXPECT_EQ(ResultOf([&] { ReadLocator(text); }), QV_IO_ERROR_INVALID_LOCATOR) << text;
  }
}

}  // namespace
}  // namespace qvio
