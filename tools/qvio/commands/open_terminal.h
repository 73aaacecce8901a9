#pragma once

#include <optional>
#include <string>

#include "device/device_log.h"
#include "device/polled_channel.h"
#include "terminal/failure.h"
#include "terminal/line_editor.h"
#include "terminal/log_file.h"
#include "terminal/polled_output.h"
#include "terminal/received_text.h"
#include "terminal/signals.h"

namespace qvio_tool {

/// A terminal: lines typed go to the device, received bytes appear above the line that is being edited. Where
/// standard output is not a terminal it gets the bytes as they are, unless lines are asked for; standard
/// error likewise the notices.
class OpenTerminal {
 public:
  struct Options {
    ChannelOptions channel;
    bool timestamps = false;  ///< before each received line
    std::string logFile;      ///< for what is sent and received; empty: none
  };

  OpenTerminal(PolledChannel& channel, const Options& options);
  OpenTerminal(const OpenTerminal&) = delete;
  OpenTerminal& operator=(const OpenTerminal&) = delete;
  ~OpenTerminal() { channel_.close(); }  // before a signal that was taken ends the program

  /// Returns when the user leaves, a signal comes or the device is gone.
  ExitStatus run();

 private:
  std::optional<ExitStatus> turn();
  bool handleSignal();
  bool handleKey();
  void send(const std::string& line);
  void receive();
  void handle(const Arrival& arrival);
  void showUnfinishedIfDue();
  [[nodiscard]] cppu::Deadline due() const;
  void show(const std::string& bytes);
  void showLines(const std::string& lines);
  void report(const std::string& text);
  void print(const std::string& lines);
  void write();
  [[nodiscard]] bool isAllWritten() const;
  void finish();

  PolledChannel& channel_;
  const ChannelOptions& options_;
  const bool asLines_;  ///< also where standard output is not a terminal
  TerminalSignals signals_;
  LineEditor editor_;
  const bool showsBytes_;    ///< above the line
  const bool showsNotices_;  ///< as showsBytes_
  PolledOutput bytes_;       ///< standard output, unless the bytes are shown
  PolledOutput notices_;     ///< standard error, unless the notices are shown
  ReceivedText received_;
  std::optional<LogFile> logFile_;
  std::optional<DeviceLog> log_;  ///< into logFile_
  bool lost_ = false;
};

}  // namespace qvio_tool
