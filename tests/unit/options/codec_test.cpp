#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "options/locator.h"
#include "options/options_map.h"
#include "options/record_list.h"
#include "util/failure.h"

namespace qvio {
namespace {

using Items = std::vector<cppu::OptionsMap::Item>;

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
  for (const auto& row : rows) EXPECT_EQ(cppu::OptionsMap(row.text).items(), row.items) << row.text;
}

TEST(OptionsMap, FindsTheFirstOfAKey) {
  const cppu::OptionsMap options("a 1\na 2");
  ASSERT_NE(options.find("a"), nullptr);
  EXPECT_EQ(options.find("a")->value, "1");
  EXPECT_EQ(options.find("b"), nullptr);
}

TEST(RecordList, EscapesSoThatEveryValueComesBack) {
  EXPECT_EQ(EscapeValue("a=b|c%\nd"), "a%3Db%7Cc%25%0Ad");
  for (const auto* value : {"", "%3D", "%253D", "%0a", "%%0A=|", "a%", "%2", "\n\n"}) {
    EXPECT_EQ(UnescapeValue(EscapeValue(value)), value);
  }
}

TEST(RecordList, ReadsOnlyItsOwnCodes) {
  const struct {
    std::string_view escaped;
    std::string_view plain;
  } rows[] = {{"%253D", "%3D"}, {"%0a", "%0a"},   {"%7c", "%7c"},
              {"%250A", "%0A"}, {"%41%", "%41%"}, {"%%25", "%%"}};
  for (const auto& row : rows) EXPECT_EQ(UnescapeValue(row.escaped), row.plain) << row.escaped;
}

TEST(RecordList, ReadsRecordsAndRefusesWhatIsNone) {
  EXPECT_TRUE(ReadRecordList("").empty());
  EXPECT_EQ(ReadRecordList("a=1|b=2\nc=3"), (RecordList{{{"a", "1"}, {"b", "2"}}, {{"c", "3"}}}));
  EXPECT_EQ(ReadRecordList("a=1|a=2"), (RecordList{{{"a", "1"}}}));
  EXPECT_EQ(ReadRecordList("k=a%7Cb"), (RecordList{{{"k", "a|b"}}}));
  for (const auto* text : {"a", "a=1=2", "a=1|", "|a=1", "a=1||b=2", "a=1\n", "\n", "a=1\n\nb=2"}) {
    try {
      ReadRecordList(text);
      ADD_FAILURE() << text;
    } catch (const std::invalid_argument& error) {
      EXPECT_STREQ(error.what(), "Invalid format");
    }
  }
}

TEST(RecordList, WritesSelectedKeysInOrderAndNoEmptyLines) {
  const RecordList records{{{"b", "2"}, {"a", "x|y"}}, {{"c", "3"}}, {{"a", "1"}}};
  EXPECT_EQ(WriteRecordList(records, {"all"}), "a=x%7Cy|b=2\nc=3\na=1");
  EXPECT_EQ(WriteRecordList(records, {"b", "a"}), "a=x%7Cy|b=2\na=1");
  EXPECT_EQ(WriteRecordList(records, {}), "");
  EXPECT_EQ(WriteValues(records, "a"), "x|y\n1");
}

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

TEST(Locator, KnowsTwoFormatsOfNetworkLocators) {
  EXPECT_EQ(ReadNetworkLocatorFormat("sn"), NetworkLocatorFormat::SerialNumber);
  EXPECT_EQ(ReadNetworkLocatorFormat("host"), NetworkLocatorFormat::Host);
  try {
    ReadNetworkLocatorFormat("ix");
    ADD_FAILURE();
  } catch (const OptionsError& error) {
    EXPECT_STREQ(error.what(), "Unknown locator format: ix");
  }
}

}  // namespace
}  // namespace qvio
