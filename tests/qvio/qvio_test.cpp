// The built program against simulated devices.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "qvio/runner.h"
#include "sim/controller.h"
#include "sim/event_loop.h"
#include "sim/network_device.h"
#include "sim/serial_device.h"
#include "support/wait.h"
#include "tools/qvio/terminal/received_text.h"
#include "tools/qvio/terminal/text.h"
#include "util/unique_fd.h"

namespace qvtest {
namespace {

/// The first row of a dump, sixteen bytes wide.
std::string HexRow(std::string bytes, const std::string& characters) {
  bytes.resize(16 * 3 - 1, ' ');
  return "00000000  " + bytes + "  |" + characters + "|\n";
}

/// A folder that is removed with all that it holds.
class Folder {
 public:
  Folder() {
    std::string name = std::filesystem::temp_directory_path() / "qvio-XXXXXX";
    path_ = ::mkdtemp(name.data());
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder() { std::filesystem::remove_all(path_); }

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  [[nodiscard]] std::string read(const std::string& name) const {
    std::ifstream file(path_ / name);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  [[nodiscard]] auto count() const {
    return std::distance(std::filesystem::directory_iterator(path_), std::filesystem::directory_iterator());
  }

 private:
  std::filesystem::path path_;
};

class Qvio : public testing::Test {
 protected:
  qvsim::EventLoop loop_;
  qvsim::NetworkDevice controller_{loop_, "127.0.0.1", 0, qvsim::ServeController({.serialNumber = "T-1"})};
  qvsim::NetworkDevice echo_{loop_, "127.0.0.1", 0, qvsim::MakeEcho};
  qvsim::SerialDevice stage_{loop_, qvsim::ServeController({.serialNumber = "T-2"})};

  const std::string net_ = "network:127.0.0.1:" + std::to_string(controller_.port());
  const std::string echoing_ = "network:127.0.0.1:" + std::to_string(echo_.port());
  const std::string tty_ = "serial:" + stage_.path();
};

TEST_F(Qvio, AnswersEveryWayOfAsking) {
  const std::string bytes("\0\xff\r\n\x1b", 5);
  const struct {
    Words arguments;
    std::string input;
    int status;
    std::string output;
  } rows[] = {
      {{"send", net_, "*IDN?"}, "", 0, "QUORVI,DRV-SIM,T-1,1.0\r\n"},
      {{"send", net_, "POS?", "--eol", "crlf", "--until", "\\r\\n"}, "", 0, "0.000\r\n"},
      {{"send", net_, "POS?\\x0a", "--eol", "none", "--bytes", "7"}, "", 0, "0.000\r\n"},
      {{"send", net_, "50 4f53 0x3F 0x0a", "--hex"}, "", 0, HexRow("30 2E 30 30 30 0D 0A", "0.000..")},
      {{"send", net_, "POS?", "--wait", "0"}, "", 0, ""},
      {{"send", net_, "POS?", "--until", "never", "--wait", "50"}, "", 124, "0.000\r\n"},
      {{"send", net_, "POS?", "--eol", "none", "--wait", "50"}, "", 124, ""},
      {{"send", tty_, "*IDN?", "-o", "baudrate 115200", "--wait", "20000"},
       "",
       0,
       "QUORVI,DRV-SIM,T-2,1.0\r\n"},
      {{"open", net_, "--quiet-ms", "200"}, "MOV 3\nPOS?\n", 0, "OK\r\n3.000\r\n"},
      {{"open", net_, "--quiet-ms", "60000", "--for", "1"}, "POS?\n", 0, "3.000\r\n"},
      {{"open", echoing_, "--quiet-ms", "200"}, bytes, 0, bytes},
      {{"open", echoing_, "--quiet-ms", "200", "--hex"}, "00 ff\n0d", 0, HexRow("00 FF 0D", "...")},
  };
  for (const auto& row : rows) {
    const auto outcome = RunQvio(row.arguments, row.input);
    EXPECT_EQ(outcome.status, row.status) << testing::PrintToString(row.arguments) << outcome.errors;
    EXPECT_EQ(outcome.output, row.output) << testing::PrintToString(row.arguments);
  }
}

TEST_F(Qvio, EndsInTimeWhateverTheDeviceDoes) {
  stage_.setReading(qvsim::Reading::Stalled);
  ExpectText({{"send", tty_, std::string(100000, 'x'), "-b", "115200", "--wait", "50"},
              124,
              "qvio: the device has not taken the whole request within 50 ms\n"});
  const Words floods[] = {{"send", echoing_, "x", "--until", "never", "--wait", "100"},
                          {"send", echoing_, "x", "--wait", "100"}};
  for (const auto& words : floods) {
    auto run = std::async(std::launch::async, [&] { return RunQvio(words).status; });
    while (run.wait_for(std::chrono::milliseconds(1)) == std::future_status::timeout) echo_.sendForever();
    EXPECT_EQ(run.get(), 124) << testing::PrintToString(words);
  }
  echo_.setReading(qvsim::Reading::Stalled);
  EXPECT_EQ(RunQvio({"open", echoing_, "--for", "1"}, std::string(16 << 20, 'x')).status, 124);
}

TEST_F(Qvio, SaysWhatIsWrongAndWhatHelps) {
  const Expected rows[] = {
      {{}, 2, "qvio: A subcommand is required\n"},
      {{"--version"}, 0, "qvio 2."},
      {{"help", "send"}, 0, "Usage: qvio send"},
      {{"fly"}, 2, "qvio: no command \"fly\"\nqvio: hint: \"qvio --help\""},
      {{"sendd", net_}, 2, "qvio: no command \"sendd\"\nqvio: hint: did you mean \"qvio send\"?"},
      {{"send", net_}, 2, "qvio: text is required, or --file\n"},
      {{"send", net_, "x", "--eol", "tab"}, 2, "qvio: --eol"},
      {{"send", net_, "\\q"}, 2, "unknown escape"},
      {{"send", net_, "4x", "--hex"}, 2, "not hexadecimal: 4x"},
      {{"send", net_, "x", "-o", "conect-timeout 5"}, 2, "qvio: Unknown option: conect-timeout\n"},
      {{"send", net_, "x", "-o", "connect-timeout 5s"}, 2, "qvio: not a number: connect-timeout 5s\n"},
      {{"send", net_, "x", "-o", "baudrate 9600"}, 2, "qvio: Unknown option: baudrate\n"},
      {{"send", net_, "x", "-o", "iface eth0"}, 2, "eth0 is not the address of an interface\nqvio: hint: "},
      {{"send", net_, "x", "--iface", "eth0"}, 2, "eth0 is not the address of an interface\n"},
      {{"send", net_, "x", "-o", "iface 127.0.0.1"}, 2, "qvio: not network:ADDRESS: iface 127.0.0.1\n"},
      {{"send", "/dev/null", "x", "-b", "9600"}, 1, "/dev/null is not a serial port\n"},
      {{"send", "127.0.0.1:70000", "x"}, 2, "port 70000 is above 65535\n"},
      {{"send", "tty", "x"}, 2, "qvio: not a locator: \"tty\"\nqvio: hint: a locator is"},
      {{"send", tty_, "x"}, 2, "baudrate is not given or 0\nqvio: hint: give the speed"},
      {{"send", "network:127.0.0.1", "x"}, 2, "no port is given for 127.0.0.1\n"},
      {{"send", "serial:/nonexistent", "x", "-o", "baudrate 9600"},
       1,
       "cannot open /nonexistent: No such file or directory\nqvio: hint: is the device plugged in?"},
      {{"send", "serial:/dev", "x", "-o", "baudrate 9600"}, 1, "cannot open /dev: Is a directory\n"},
      {{"send", "serial:/dev/null", "x", "-o", "baudrate 9600"}, 1, "/dev/null is not a serial port\n"},
      {{"send", "usb:sn:1", "x"}, 1, "FTDI's driver cannot be used: libftd2xx.so: "},
      {{"send", "network:no-such-host.invalid:5", "x"}, 1, "cannot resolve no-such-host.invalid: "},
      {{"send", "network:sn:NOBODY", "x", "--iface", "127.0.0.1", "--timeout", "1"},
       1,
       "no device with serial number NOBODY answered on 127.0.0.1\nqvio: hint: \"qvio list\""},
      {{"complete", "--", "pi"}, 0, "ping\tMeasure how long"},
      {{"complete", "--", "send", "x", "-e", "c"}, 0, "cr\t\ncrlf\t\n"},
      {{"complete", "--", "config", "s"}, 0, "set\tChange"},
      {{"send", tty_, "POS?", "-o", "baudrate 500000", "--wait", "0"},
       0,
       "runs at 230400 baud, not at 500000"},
      {{"send", tty_, "POS?", "-o", "baudrate 9600", "-o", "xonxoff", "--wait", "0"},
       0,
       "xonxoff does not switch flow control on"},
  };
  for (const auto& row : rows) ExpectText(row);
  for (const auto* command :
       {"open", "send", "list", "watch", "ifaces", "config", "info", "log", "ping", "doctor", "version"})
    ExpectText({{command, "--help"}, 0, "Example:"});
}

TEST_F(Qvio, KnowsDevicesByTheNamesInAFile) {
  const Folder folder;
  ::setenv("XDG_CONFIG_HOME", folder.path().c_str(), 1);
  std::ofstream(folder.path() / "qvio.toml")
      << "# mine\n[stage]\nlocator = \"" << stage_.path()
      << "\"\noptions = [\"baudrate 115200\"]\n[net]\nlocator = '127.0.0.1:" << controller_.port()
      << "'\neol = 'crlf'\n[typo]\nlocater = \"x\"\n";
  const Expected rows[] = {{{"send", "stage", "*IDN?", "--wait", "20000"}, 0, "QUORVI,DRV-SIM,T-2,1.0\r\n"},
                           {{"send", "net", "*IDN?"}, 0, "QUORVI,DRV-SIM,T-1,1.0\r\n"},
                           {{"send", "net", "x", "-b", "9600"}, 2, "qvio: Unknown option: baudrate\n"},
                           {{"send", "typo", "x"},
                            2,
                            "qvio.toml: [typo] cannot have locater: a device has locator, options and eol\n"},
                           {{"complete", "--", "send", "-x", "ne"}, 0, "net\ta device of "},
                           {{"send", "other", "x"}, 2, "qvio: not a locator: \"other\"\n"}};
  for (const auto& row : rows) ExpectText(row);
  ::unsetenv("XDG_CONFIG_HOME");
}

TEST_F(Qvio, NamesTheProcessThatHoldsTheSerialPort) {
  const cppu::UniqueFd holder(::open(stage_.path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  ASSERT_EQ(::flock(holder.get(), LOCK_EX | LOCK_NB), 0);
  ExpectText({{"send", tty_, "POS?", "-o", "baudrate 9600"},
              1,
              "is in use by qvio_test (pid " + std::to_string(::getpid()) + ")"});
}

TEST_F(Qvio, LeavesWhenTheDeviceIsGone) {
  const struct {
    Words device;
    std::function<void()> remove;
    std::string why;
  } rows[] = {{{"open", net_}, [&] { controller_.closeAll(); }, "connection lost (result 7)"},
              {{"open", tty_, "-b", "115200"}, [&] { stage_.hangUp(); }, "receive failed (result 8)"}};
  for (const auto& row : rows) {
    QvioTerminal terminal(row.device);
    EXPECT_TRUE(terminal.shows("is open"));
    terminal.type("POS?\nhalf a line");
    EXPECT_TRUE(terminal.shows("0.000"));
    row.remove();
    EXPECT_TRUE(terminal.shows("qvio: the device is gone: " + row.why)) << terminal.screen();
    EXPECT_EQ(terminal.waitForEnd(), 1);
    EXPECT_EQ(terminal.screen().find("gone"), terminal.screen().rfind("gone")) << "reported once";
  }
}

TEST_F(Qvio, WaitsForADeviceThatIsGone) {
  const Folder folder;
  auto peer = std::make_optional<qvsim::NetworkDevice>(loop_, "127.0.0.1", 0, qvsim::MakeEcho);
  const auto port = peer->port();
  peer.reset();
  const auto log = (folder.path() / "stage.log").string();
  QvioTerminal terminal(
      {"open", "127.0.0.1:" + std::to_string(port), "--reconnect", "--timestamp", "--log", log});
  EXPECT_TRUE(terminal.shows("is being waited for"));
  for (const auto* const state : {"there", "back"}) {
    EXPECT_TRUE(terminal.shows("waiting for the device: the link ends at once")) << terminal.screen();
    const auto line = std::string("typed before it is ") + state;
    terminal.type(line + "\n");
    peer.emplace(loop_, "127.0.0.1", port, qvsim::MakeEcho);
    EXPECT_TRUE(terminal.shows(std::string("the device is ") + state + " after "));
    EXPECT_TRUE(terminal.shows("\x1b[J20")) << "the time";
    EXPECT_TRUE(terminal.shows(" " + line + "\r\n")) << terminal.screen();
    peer.reset();
    EXPECT_TRUE(terminal.shows("the device is gone: connection lost (result 7)"));
  }
  terminal.type("never sent\n\x1d");
  EXPECT_EQ(terminal.waitForEnd(), 0);
  const auto text = folder.read("stage.log");
  for (const auto* const piece : {" > typed before it is there\n", " < typed before it is back\n",
                                  " ! the device is gone: connection lost (result 7)\n"})
    EXPECT_NE(text.find(piece), std::string::npos) << text;
}

TEST_F(Qvio, LogsSeveralDevicesIntoFiles) {
  const Folder folder;
  const auto port = std::to_string(controller_.port());
  const auto outcome = RunQvio({"log", net_, "127.0.0.1:" + port, "--request", "*IDN?", "--every", "0.01",
                                "--for", "1", "--folder", folder.path(), "--max-size", "1kb", "--keep", "2"});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(folder.count(), 6) << "for each device a file and two old ones";
  const auto text = folder.read("127.0.0.1_" + port + ".log");
  EXPECT_LE(text.size(), 1000U);
  EXPECT_NE(text.find(" < QUORVI,DRV-SIM,T-1,1.0\n"), std::string::npos) << text;
  EXPECT_NE(text.find(" > *IDN?\n"), std::string::npos) << text;
  const auto shown = RunQvio({"log", net_, "--request", "POS?", "--hex", "--for", "1"}).output;
  EXPECT_NE(shown.find(" < " + HexRow("30 2E 30 30 30 0D 0A", "0.000..")), std::string::npos) << shown;
  EXPECT_EQ(RunQvio({"log", net_, "--request", "POS?", "--raw", "--every", "60", "--for", "1"}).output,
            "0.000\r\n");
}

TEST_F(Qvio, MeasuresRoundTrips) {
  const auto answered = RunQvio({"ping", net_, "-c", "3", "--every", "0"});
  EXPECT_EQ(answered.status, 0) << answered.errors;
  EXPECT_NE(answered.output.find("\n3 asked, 3 answered, 0 lost\nmin "), std::string::npos)
      << answered.output;
  const auto late = RunQvio({"ping", net_, "-c", "2", "--until", "never", "--wait", "1"});
  EXPECT_EQ(late.status, 1);
  EXPECT_EQ(late.output, "1: no answer in time\n2: no answer in time\n2 asked, 0 answered, 2 lost\n");
  stage_.setReading(qvsim::Reading::Stalled);
  const auto stalled =
      RunQvio({"ping", tty_, "-b", "115200", "--request", std::string(100000, 'x'), "-w", "1"});
  EXPECT_EQ(stalled.output, "1: the device takes no bytes\n1 asked, 0 answered, 1 lost\n");
}

TEST_F(Qvio, SendsAFile) {
  const Folder folder;
  const auto file = folder.path() / "firmware";
  std::string bytes;
  for (int i = 0; i < 100000; ++i) bytes += static_cast<char>(i % 251);
  std::ofstream(file) << bytes;
  EXPECT_EQ(RunQvio({"send", echoing_, "--file", file, "--bytes", "100000"}).output, bytes);
  QvioTerminal terminal({"send", echoing_, "--file", file, "--wait", "0"});
  EXPECT_TRUE(terminal.shows("[##############################] 100 %  100.0 of 100.0 kB"))
      << terminal.screen();
  EXPECT_EQ(terminal.waitForEnd(), 0);
}

TEST_F(Qvio, GivesTheBytesAsTheyAreWhereOutputIsRedirected) {
  const auto output = FileOf("");
  const auto errors = FileOf("");
  QvioTerminal terminal({"open", echoing_, "--eol", "crlf"}, {output.get(), errors.get()});
  EXPECT_TRUE(terminal.shows("> "));
  terminal.type("a whole line\r\npasted\r\n\x16\x1b[31m\n");
  EXPECT_TRUE(Eventually([&] { return ContentOf(output).ends_with("[31m\r\n"); })) << terminal.screen();
  echo_.closeAll();
  EXPECT_EQ(terminal.waitForEnd(), 1);
  EXPECT_EQ(ContentOf(output), "a whole line\r\npasted\r\n\x1b[31m\r\n");
  EXPECT_NE(ContentOf(errors).find("the device is gone"), std::string::npos);
  EXPECT_NE(terminal.screen().find("> a whole line"), std::string::npos) << "the keys are echoed";
}

/// The characters that must not reach a terminal, and some that must.
TEST(Text, EscapesWhatCouldHarmATerminal) {
  std::setlocale(LC_CTYPE, "C.UTF-8");
  const struct {
    std::string bytes;
    std::string text;
  } rows[] = {{"Axis \xC3\xA9\xE2\x82\xAC", "Axis \xC3\xA9\xE2\x82\xAC"},
              {std::string("\0\x1b[31m\x7f", 7), R"(\x00\x1B[31m\x7F)"},
              {"\x9b\xC2\x9B", R"(\x9B\xC2\x9B)"},  // C1 as a byte and as UTF-8
              {"\xC3(\xE2\x82", R"(\xC3(\xE2\x82)"},
              {std::string("a\xE2\x80") + "\xAE" + "b\xE2\x81" + "\xA6", R"(a\xE2\x80\xAEb\xE2\x81\xA6)"}};
  for (const auto& row : rows) {
    EXPECT_EQ(qvio_tool::OneLine(row.bytes), row.text);
    EXPECT_EQ(qvio_tool::Printable("\t" + row.bytes + "\r\n\r"), "\t" + row.text + "\n\\x0D");
  }
  EXPECT_EQ(qvio_tool::JsonText(std::string("\xC2\x9B\xE2\x80") + "\xAE\xff", -1),
            "\"\\u009b\\u202e\\ufffd\"\n");
  std::setlocale(LC_CTYPE, "C");
}

TEST(ReceivedText, ShowsLinesAtTheirEndAndOthersInTime) {
  constexpr auto kLimit = qvio_tool::ReceivedText::kWholeLine;
  const struct {
    std::vector<std::string> pieces;  ///< a quarter of the limit after another
    std::string shown;                ///< with | for the end of each piece
  } rows[] = {{{"a\nb\r\nc\r"}, "a\nb\nc\n|"},
              {{"a\r", "\nb\r", "c\n"}, "a\n|b\n|c\n|"},
              {{"\r\r\n\n"}, "\n\n\n|"},
              {{"a", "b", "c", "d", "e", "f"}, "||||abcde\n||"},
              {{"a", "", "", "", "", "\r", "\n", "\nb\n"}, "||||a\n|||\nb\n|"},
              {{"a", "", "", "", "", "b\n"}, "||||a\n|b\n|"},
              {{std::string(20000, 'x')}, std::string(20000, 'x') + "\n|"}};
  for (const auto& row : rows) {
    qvio_tool::ReceivedText text;
    std::chrono::steady_clock::time_point now;
    std::string shown;
    for (const auto& piece : row.pieces) {
      shown += text.add(piece, now);
      if (text.due() && *text.due() <= now) shown += text.takeRest();
      shown += '|';
      now += kLimit / 4;
    }
    EXPECT_EQ(shown, row.shown);
  }
}

TEST_F(Qvio, DrawsALineOfSeveralRowsAgainBelowWhatArrives) {
  const std::string wide = "\xE7\x95\x8C";  // of two columns
  const std::string control = "\x16\x01";   // shown as ^A
  const auto of = [](int count, const std::string& text) {
    std::string all;
    for (int i = 0; i < count; ++i) all += text;
    return all;
  };
  const struct {
    std::string typed;  ///< and then Q, after the prompt of two columns; a row has 100
    std::string up;     ///< from the cursor to the prompt
  } rows[] = {{of(96, "x"), ""},
              {of(97, "x"), "\x1b[1A"},
              {of(296, "x"), "\x1b[2A"},
              {of(297, "x"), "\x1b[3A"},
              {"x" + of(98, wide), "\x1b[2A"},  // one that does not fit leaves a column free: 3 + 96, 100, 2
              {of(49, control), "\x1b[1A"},
              {of(250, "x") + "\x01", ""}};  // Ctrl-A: the cursor is in the first row
  for (const auto& row : rows) {
    QvioTerminal terminal({"open", net_});
    EXPECT_TRUE(terminal.shows("> "));
    terminal.type(row.typed + "Q");
    EXPECT_TRUE(terminal.shows("Q"));
    controller_.closeAll();
    EXPECT_TRUE(terminal.shows("\r" + row.up + "\x1b[Jqvio: the device is gone")) << terminal.screen();
  }
}

TEST_F(Qvio, EditsLinesAndShowsWhatArrivesHarmlessly) {
  QvioTerminal terminal({"open", echoing_});
  EXPECT_TRUE(terminal.shows("> "));
  terminal.type(
      "axx\x7f\x7f"
      "bc\n");  // rubbed out, and entered
  EXPECT_TRUE(terminal.shows("\x1b[Jabc\r\n")) << "the echo" << terminal.screen();
  terminal.type("\x16\x1b[31m\n");  // Ctrl-V takes the escape as a character
  EXPECT_TRUE(terminal.shows("\\x1B[31m"));
  terminal.type("\x04");  // Ctrl-D on the empty line
  EXPECT_EQ(terminal.waitForEnd(), 0) << terminal.screen();
}

TEST_F(Qvio, LeavesAtASignalOrAKeyWhateverTheDeviceDoes) {
  enum class Trouble { Stalls, Floods, FloodsStoppedTerminal, FloodsUnreadPipe };
  const struct {
    Trouble trouble;
    std::string keys;  ///< without: SIGTERM
    int status;
  } rows[] = {{Trouble::Stalls, "", 128 + SIGTERM},
              {Trouble::Floods, "\x1d", 0},
              {Trouble::FloodsStoppedTerminal, "\x1d", 0},
              {Trouble::FloodsStoppedTerminal, "\x03", 128 + SIGINT},
              {Trouble::FloodsStoppedTerminal, "", 128 + SIGTERM},
              {Trouble::FloodsUnreadPipe, "typed\x1d", 0},
              {Trouble::FloodsUnreadPipe, "typed\x1b", 128 + SIGTERM}};  // within a sequence of keys
  for (const auto& row : rows) {
    const auto pipe = MakePipe();
    const bool piped = row.trouble == Trouble::FloodsUnreadPipe;
    echo_.setReading(row.trouble == Trouble::Stalls ? qvsim::Reading::Stalled : qvsim::Reading::Answering);
    QvioTerminal terminal({"open", echoing_}, {piped ? pipe[1].get() : -1});
    EXPECT_TRUE(terminal.shows("> "));
    terminal.type("x\n");
    EXPECT_TRUE(Eventually([&] { return echo_.connections() == 1; }));
    if (row.trouble != Trouble::Stalls) echo_.sendForever();
    EXPECT_TRUE(row.trouble == Trouble::Stalls || piped || terminal.shows("...."));
    if (row.trouble == Trouble::FloodsStoppedTerminal) terminal.type("\x13");  // Ctrl-S
    EXPECT_TRUE(row.trouble != Trouble::FloodsStoppedTerminal || BecomesFull(terminal.openScreen().get()));
    EXPECT_TRUE(!piped || BecomesFull(pipe[1].get()));
    terminal.type(row.keys);
    EXPECT_TRUE(row.keys != "typed\x1b" || (terminal.shows("typed") && terminal.takesAllKeys()));
    if (row.status == 128 + SIGTERM) ::kill(terminal.pid(), SIGTERM);
    EXPECT_EQ(terminal.waitForEnd(), row.status);
    echo_.setReading(qvsim::Reading::Answering);
    EXPECT_TRUE(Eventually([&] { return echo_.connections() == 0; }));
  }
}

}  // namespace
}  // namespace qvtest
