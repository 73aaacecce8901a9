#pragma once

#include <optional>
#include <string>

#include "device/channel_use.h"
#include "terminal/failure.h"
#include "terminal/line_editor.h"
#include "terminal/polled_output.h"
#include "terminal/received_text.h"
#include "terminal/signals.h"

namespace qvio_tool {

/// A terminal: lines typed go to the device, received bytes appear above the line that is being edited. Where
/// standard output is not a terminal it gets the bytes as they are; standard error likewise the notices.
class OpenTerminal {
 public:
  OpenTerminal(PolledChannel& channel, const ChannelOptions& options);
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
  void show(const std::string& bytes);
  void report(const std::string& text);
  void print(const std::string& lines);
  void write();
  [[nodiscard]] bool isAllWritten() const;
  void finish();

  PolledChannel& channel_;
  const ChannelOptions& options_;
  TerminalSignals signals_;
  LineEditor editor_;
  const bool showsBytes_;    ///< above the line
  const bool showsNotices_;  ///< as showsBytes_
  PolledOutput bytes_;       ///< standard output, unless the bytes are shown
  PolledOutput notices_;     ///< standard error, unless the notices are shown
  ReceivedText received_;
  bool lost_ = false;
};

}  // namespace qvio_tool
