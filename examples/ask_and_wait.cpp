// A small C++ client: an owner for the handle, and requests that wait for their answer line.
//
//     ask_and_wait network:127.0.0.1:5000 "" "MOV 5" "POS?"

#include <quorvio/quorvio.h>

#include <chrono>
#include <condition_variable>
#include <iostream>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>

namespace {

class Device {
 public:
  Device(const std::string& locator, const std::string& options) {
    const auto result =
        QV_IO_Open(&handle_, locator.c_str(), options.c_str(), this, &Device::onReceive, nullptr);
    if (result != QV_IO_OK)
      throw std::runtime_error("cannot open " + locator + ": result " + std::to_string(result));
  }
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;
  ~Device() { QV_IO_Close(handle_, 1); }  // with wait: afterwards the callback touches this object no more

  /// The answer line to a command; none when it does not come in time.
  std::optional<std::string> ask(const std::string& command, std::chrono::milliseconds patience) {
    const auto line = command + "\n";
    if (QV_IO_Send(handle_, line.data(), line.size()) != QV_IO_OK) return {};
    std::unique_lock lock(mutex_);
    std::size_t end = 0;
    const auto complete = [&] { return (end = received_.find('\n')) != std::string::npos; };
    if (!arrived_.wait_for(lock, patience, complete)) return {};
    auto answer = received_.substr(0, end);
    received_.erase(0, end + 1);
    return answer;
  }

 private:
  static void onReceive(void* self, const uint8_t* data, size_t length) {
    auto& device = *static_cast<Device*>(self);
    {
      const std::lock_guard lock(device.mutex_);
      device.received_.append(reinterpret_cast<const char*>(data), length);
    }
    device.arrived_.notify_one();
  }

  uint32_t handle_ = 0;
  std::mutex mutex_;  ///< guards received_, which the receive thread fills
  std::condition_variable arrived_;
  std::string received_;
};

}  // namespace

int main(int argc, char** argv) try {
  if (argc < 4) {
    std::cerr << "usage: ask_and_wait LOCATOR OPTIONS COMMAND...\n";
    return 2;
  }
  Device device(argv[1], argv[2]);
  for (int i = 3; i < argc; ++i) {
    const auto answer = device.ask(argv[i], std::chrono::seconds(1));
    if (!answer) throw std::runtime_error(std::string("no answer to ") + argv[i]);
    std::cout << *answer << '\n';
  }
} catch (const std::exception& error) {
  std::cerr << error.what() << '\n';
  return 1;
}
