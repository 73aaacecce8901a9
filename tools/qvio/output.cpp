#include "output.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "result_text.h"
#include "util/system_call.h"

namespace qvio_tool {

void WriteAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const auto written = cppu::Uninterrupted([&] { return ::write(fd, bytes.data(), bytes.size()); });
    if (written < 0) throw CommandFailure(std::string("cannot write: ") + std::strerror(errno));
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace qvio_tool
