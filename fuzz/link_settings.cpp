// What a chip's driver says about its EEPROM, and the settings of the link that follow from it.

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>
#include <vector>

#include "check.h"
#include "io/ftdi/chip.h"
#include "io/ftdi/device_list.h"
#include "io/ftdi/link_settings.h"
#include "options/result.h"
#include "script.h"

namespace {

using namespace qvio;
using qvfuzz::Check;
using qvfuzz::Script;

using Area = std::vector<uint8_t>;

constexpr uint32_t kLargestEeprom = 2048;  // of all chips that there are

/// A driver whose chip has the EEPROM of the input, and that may tell any size of it.
struct FakeDriver {
  static inline Area area;
  static inline uint32_t toldSize = 0;

  static D2xxFunctions functions() {
    D2xxFunctions functions;
    functions.FT_Open = [](int /*index*/, d2xx::Handle* handle) {
      *handle = &area;
      return uint32_t{d2xx::Ok};
    };
    functions.FT_Close = [](d2xx::Handle /*handle*/) { return uint32_t{d2xx::Ok}; };
    functions.FT_EE_UASize = [](d2xx::Handle /*handle*/, uint32_t* size) {
      *size = toldSize;
      return uint32_t{d2xx::Ok};
    };
    functions.FT_EE_UARead = [](d2xx::Handle /*handle*/, uint8_t* data, uint32_t size, uint32_t* read) {
      *read = std::min(size, static_cast<uint32_t>(area.size()));
      std::copy_n(area.begin(), *read, data);
      return uint32_t{d2xx::Ok};
    };
    return functions;
  }
};

/// None: the driver was not believed.
std::optional<Area> ReadArea() {
  static const auto functions = FakeDriver::functions();
  try {
    return Chip::openByIndex(functions, 0)->readUserArea();
  } catch (const Failure& failure) {
    Check(failure.code() == QV_IO_ERROR_DRIVER_FAILURE,
          "an EEPROM that cannot be read is a driver's failure");
    return {};
  }
}

/// Mostly what the EEPROM holds, else anything.
uint32_t ToldSize(Script& script, std::size_t real) {
  constexpr std::array<uint32_t, 4> kEdges{0, 4, 65536, 0xFFFFFFFF};
  switch (script.below(4)) {
    case 0:
      return script.oneOf(kEdges);
    case 1:
      return script.byte();
    default:
      return static_cast<uint32_t>(real);
  }
}

constexpr std::array<std::string_view, 4> kProducts{"Quorvi DRV-I", "Quorvi DRV2", "Quorvi AXU-3D", ""};

bool IsKnown(const LinkSettings& settings) {
  constexpr std::array<LinkSettings, 3> kKnown{
      {{0, d2xx::kFlowNone, false}, {500000, d2xx::kFlowNone, false}, {12000000, d2xx::kFlowRtsCts, false}}};
  return std::ranges::find(kKnown, settings) != kKnown.end();
}

void CheckSettings(const ChipTraits& chip, std::optional<uint32_t> speed, std::optional<uint16_t> flow) {
  auto own = ChooseLinkSettings(chip, {}, {});
  Check(own.fifo == chip.isHighSpeedDualChannel, "the kind of chip alone decides on the mode");
  const auto asked = ChooseLinkSettings(chip, speed, flow);
  Check(asked == LinkSettings{speed.value_or(own.lineSpeed), flow.value_or(own.flowControl), own.fifo},
        "the user wins, and changes nothing else");
  own.fifo = false;
  Check(IsKnown(own), "there are three lines");
  const auto mark = std::string_view("QVIO");
  const bool marked = chip.userArea.size() >= 5 && std::ranges::equal(chip.userArea.first(4), mark);
  Check(HasMakersMark(chip.userArea) == marked, "the mark needs a byte behind it");
  if (marked && chip.userArea[4] != 0) {
    const auto byte = chip.userArea[4];
    Check(own.lineSpeed == (byte == 1 ? 500000U : byte == 10 ? 12000000U : 0U), "the configuration decides");
  } else {
    Check(ChooseLinkSettings({{}, chip.description, chip.isHighSpeedDualChannel}, speed, flow) == asked,
          "without a configuration the area says nothing");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Script script({data, size});
  const auto content = script.text();
  FakeDriver::area.assign(content.begin(), content.end());
  FakeDriver::toldSize = ToldSize(script, content.size());
  const auto area = ReadArea();
  Check(area ? area->size() == FakeDriver::toldSize : FakeDriver::toldSize > kLargestEeprom,
        "an EEPROM is as long as the driver says, unless there is none as long");

  const bool dual = script.flag();
  std::optional<uint32_t> speed;
  if (script.flag()) speed = script.number();
  std::optional<uint16_t> flow;
  if (script.flag()) flow = static_cast<uint16_t>(script.number());
  const auto product = script.oneOf(kProducts);
  const auto description = product.empty() ? script.text() : product;
  CheckSettings({area.value_or(Area{}), description, dual}, speed, flow);
  CheckSettings({FakeDriver::area, description, dual}, speed, flow);
  const auto trimmed = TrimDescription(description, dual);
  Check(trimmed == description ||
            (dual && trimmed.size() + 2 == description.size() && description.starts_with(trimmed)),
        "a description loses two characters or none");
  return 0;
}
