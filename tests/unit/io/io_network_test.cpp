#include <gtest/gtest.h>

#include <string>

#include "io/io_network.h"
#include "util/failure.h"

namespace qvio {
namespace {

TEST(NetworkTarget, ReadsTheFourForms) {
  const struct {
    std::string_view locator;
    std::string host;
    std::string serialNumber;
    uint16_t port;
  } rows[] = {{"network:10.0.0.5", "10.0.0.5", "", 0}, {"network::5000", "5000", "", 0},
              {"network:host:5000", "host", "", 5000}, {"network:host:80x", "host", "", 80},
              {"network:host: 80", "host", "", 80},    {"network:host:65535", "host", "", 65535},
              {"network:host:0", "host", "", 0},       {"network:sn", "sn", "", 0},
              {"network:sn:ABC", "", "ABC", 0},        {"network:sn:ABC:9000", "", "ABC", 9000}};
  for (const auto& row : rows) {
    const auto target = ReadNetworkTarget(ReadLocator(row.locator));
    EXPECT_EQ(target.host, row.host) << row.locator;
    EXPECT_EQ(target.serialNumber, row.serialNumber) << row.locator;
    EXPECT_EQ(target.port, row.port) << row.locator;
  }
}

TEST(NetworkTarget, RefusesOtherFormsAndImpossiblePorts) {
  const struct {
    std::string_view locator;
    uint32_t result;
  } rows[] = {{"network", 2},          {"network:", 2},       {"network:a:b:c", 2},
              {"network:sn:A:B:C", 2}, {"network:a:abc", 4},  {"network:a:70000", 4},
              {"network:a:-1", 4},     {"network:sn:A:x", 4}, {"network:a:99999999999999999999", 4}};
  for (const auto& row : rows) {
    EXPECT_EQ(ResultOf([&] { ReadNetworkTarget(ReadLocator(row.locator)); }), row.result) << row.locator;
  }
}

}  // namespace
}  // namespace qvio
