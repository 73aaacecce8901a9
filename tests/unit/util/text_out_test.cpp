#include "util/text_out.h"

#include <gtest/gtest.h>

#include <string>

#include "util/failure.h"

namespace qvio {
namespace {

TEST(TextOut, RulesDifferOnlyWhenTheTextDoesNotFit) {
  const struct {
    std::size_t capacity;
    bool fits;
    std::size_t listingSize;
    std::size_t propertySize;
    std::string property;  ///< what the buffer "######" holds afterwards
  } rows[] = {{0, false, 4, 3, "######"},
              {1, false, 4, 3, std::string("\0#####", 6)},
              {3, false, 4, 3, std::string("\0#####", 6)},
              {4, true, 3, 3, std::string("abc\0##", 6)},
              {6, true, 3, 3, std::string("abc\0##", 6)}};
  for (const auto& row : rows) {
    std::string listing = "######";
    std::size_t size = row.capacity;
    const auto listed = ResultOf([&] { HandOutListing("abc", listing.data(), size); });
    EXPECT_EQ(listed == QV_IO_OK, row.fits) << row.capacity;
    EXPECT_EQ(size, row.listingSize) << row.capacity;
    EXPECT_EQ(listing, row.fits ? row.property : "######") << row.capacity;

    std::string property = "######";
    size = row.capacity;
    const auto result = ResultOf([&] { HandOutProperty("abc", property.data(), size); });
    EXPECT_EQ(result, row.fits ? QV_IO_OK : QV_IO_ERROR_BUFFER_TOO_SMALL) << row.capacity;
    EXPECT_EQ(size, row.propertySize) << row.capacity;
    EXPECT_EQ(property, row.property) << row.capacity;
  }
}

}  // namespace
}  // namespace qvio
