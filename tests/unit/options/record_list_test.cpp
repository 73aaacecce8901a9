#include "options/record_list.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace qvio {
namespace {

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

}  // namespace
}  // namespace qvio
