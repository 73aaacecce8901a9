#include "driver/system.h"

#include "driver/channel_list.h"
#include "driver/usbfs_link.h"

namespace qvusb {

std::vector<Channel> PluggedChannels() { return ListChannels("/"); }

std::unique_ptr<Link> OpenLink(const Channel& channel) { return std::make_unique<UsbfsLink>(channel); }

}  // namespace qvusb
