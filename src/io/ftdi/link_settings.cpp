#include "io/ftdi/link_settings.h"

#include <algorithm>

#include "io/ftdi/d2xx.h"
#include "io/ftdi/products.h"

namespace qvio {
namespace {

constexpr std::string_view kMakersMark = "QVIO";

/// None: the configuration leaves it to the chip and the product.
std::optional<LinkSettings> ByConfiguration(std::span<const uint8_t> userArea) {
  if (!HasMakersMark(userArea)) return {};
  switch (userArea[kMakersMark.size()]) {
    case 0:
      return {};
    case 1:
      return LinkSettings{500000, d2xx::kFlowNone};
    case 10:
      return LinkSettings{12000000, d2xx::kFlowRtsCts};
    default:  // 11 is a device without a line; the others are not in use
      return LinkSettings{};
  }
}

LinkSettings ByProduct(std::string_view description) {
  const auto* const product = std::ranges::find(kProducts, description, &Product::description);
  return product != kProducts.end() ? product->settings : LinkSettings{};
}

}  // namespace

bool HasMakersMark(std::span<const uint8_t> userArea) {
  return userArea.size() > kMakersMark.size() && std::ranges::equal(kMakersMark, userArea.first(4));
}

LinkSettings ChooseLinkSettings(const ChipTraits& chip, std::optional<uint32_t> lineSpeed,
                                std::optional<uint16_t> flowControl) {
  // A dual-channel chip runs as a FIFO, where a product's line speed would mean nothing.
  const auto configured = ByConfiguration(chip.userArea);
  const bool byProduct = !configured && !chip.isHighSpeedDualChannel;
  auto settings = byProduct ? ByProduct(chip.description) : configured.value_or(LinkSettings{});
  settings.lineSpeed = lineSpeed.value_or(settings.lineSpeed);
  settings.flowControl = flowControl.value_or(settings.flowControl);
  settings.fifo = chip.isHighSpeedDualChannel;
  return settings;
}

}  // namespace qvio
