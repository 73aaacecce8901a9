// The checks of `qvio doctor` on described machines, and the command itself in a network of its own.

#include "doctor/checks.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "qvio/runner.h"
#include "support/discovery.h"
#include "support/private_network.h"
#include "util/unique_fd.h"

namespace qvtest {
namespace {

namespace fs = std::filesystem;
using namespace qvio_tool;

constexpr const char* kNft = R"(table inet filter {
	set ours {
		type ipv4_addr
	}
	chain input {
		type filter hook input priority filter; policy drop;
		ct state vmap { established : accept, invalid : drop }
		iifname "lo" accept
		tcp dport 22 accept
		jump local
		counter packets 1 bytes 2 reject
	}
	chain local {
		udp dport { 5353,
			65110-65111 } ip daddr != 10.0.0.0/8 accept comment "devices"
	}
})";

constexpr const char* kIptables = R"(*filter
:INPUT ACCEPT [0:0]
:ours - [0:0]
-A INPUT ! -i eth0 -j DROP
-A INPUT -p udp -g ours
-A INPUT -j DROP
-A ours -m state --state RELATED,ESTABLISHED -j DROP
-A ours -m pkttype --pkt-type multicast -j RETURN
-A ours -p udp -m multiport --dports 5353,65110:65111 -j REJECT --reject-with icmp-port-unreachable
COMMIT
)";

constexpr const char* kRoute = "eth0 0000A8C0 00000000 0001 0 0 9 00FFFFFF 0 0 0\n";
constexpr const char* kOtherRoute = "eth1 0000A8C0 00000000 0001 0 0 0 00FFFFFF 0 0 0\n";
constexpr const char* kDefaultRoute = "eth0 00000000 0100A8C0 0003 0 0 0 00000000 0 0 0\n";

constexpr const char* kPortTaken = "  sl\n  1: 00000000:FE56 00000000:0000 07 0:0 00:0 0 0 0 77 2 0 0\n";
const std::string kForeignElf =
    "\x7f"
    "ELF\1\1" +
    std::string(14, '\1');

/// The files of a machine without a fault. The process id is above the largest one.
const std::pair<const char*, std::string> kFiles[] = {
    {"/sys/bus/usb/devices/1-2/idVendor", "0403"},
    {"/sys/bus/usb/devices/1-2/busnum", "1"},
    {"/sys/bus/usb/devices/1-2/devnum", "4"},
    {"/sys/bus/usb/devices/1-2:1.0/bInterfaceNumber", "00"},
    {"/dev/bus/usb/001/004", ""},
    {"/sys/class/tty/ttyUSB0/device/port_number", "0"},
    {"/sys/class/tty/ttyUSB0/dev", "188:0"},
    {"/dev/ttyUSB0", ""},
    {"/sys/class/tty/ttyS0/device/id", ""},
    {"/sys/class/tty/ttyS0/type", "0"},
    {"/sys/class/net/eth0/device/vendor", ""},
    {"/sys/class/net/eth0/flags", "0x1003"},
    {"/sys/class/net/eth0/carrier", "1"},
    {"/proc/net/dev", "Inter-|\n face |\n    lo: 1 2\n  eth0: 3 4\n"},
    {"/proc/net/udp", "  sl\n  1: 00000000:FE55 00000000:0000 07 0:0 00:0 0 0 0 77 2 0 0\n"},
    {"/proc/net/route", std::string("Iface\n") + kDefaultRoute + kRoute},
    {"/proc/sys/net/core/rmem_max", "212992"},
    {"/proc/4999999/comm", "ModemManager"},
    {"/run/udev/data/c188:0", "E:ID_MM_DEVICE_IGNORE=1\n"},
    {"/proc/4999999/fd/0", ""}};

/// A machine in a folder of its own, at first without a fault.
class Described : public Machine {
 public:
  Described() {
    root = fs::temp_directory_path() / ("qvio-doctor-" + std::to_string(::getpid()));
    for (const auto& [path, content] : kFiles) write(path, content);
    for (const std::string name : {"libftd2xx.so", "libftchipid.so"})
      link("/usr/lib/" + name, STAND_IN_FOLDER "/" + name);
    loaderFolders = {"/usr/lib"};
    kind = KindOf(STAND_IN_FOLDER "/libftd2xx.so");
    library = {.path = "/usr/lib/libquorvio.so.2", .version = "2.1.2", .problem = {}};
    builtInVersion = "2.1.2";
    interfaces = {{"eth0", {192, 168, 0, 2}, {255, 255, 255, 0}}};
    firewall = kNft;
    addDevice("A'1", "192.168.0.10");
    mayUse = [this](const std::string& path) { return path != forbidden; };
    bindProblem = [this](uint16_t port) { return port == refusedPort ? "Address already in use" : ""; };
    multicastProblem = [this](const quorvind::Interface&) { return silence; };
  }
  Described(const Described&) = delete;
  Described& operator=(const Described&) = delete;
  ~Described() { fs::remove_all(root); }

  void write(const std::string& path, const std::string& content = "") const {
    fs::create_directories(at(path).parent_path());
    std::ofstream(at(path)) << content;
  }
  void remove(const std::string& path) const { fs::remove_all(at(path)); }
  void link(const std::string& path, const std::string& target) const {
    fs::create_directories(at(path).parent_path());
    fs::remove(at(path));
    fs::create_symlink(target, at(path));
  }
  void open(const std::string& target) const { link("/proc/4999999/fd/3", target); }
  void route(const std::string& lines) const { write("/proc/net/route", "Iface\n" + lines); }
  void addDevice(const std::string& serialNumber, const std::string& host) {
    auto& device = devices.emplace_back();
    device.serialNumber = serialNumber;
    device.host = host;
    device.type = 7;
    device.available = true;
    device.interface = "network:192.168.0.2";
  }
  quorvio::Device& device() { return devices.front(); }
  void addInput(const std::string& rule) { firewall->insert(firewall->find("\t\tct state"), rule + '\n'); }

  std::string forbidden;
  uint16_t refusedPort = 0;
  std::string silence;
};

/// What is wrong with a machine: the only finding that is not ok.
struct Row {
  const char* check;
  State state;
  const char* text;
  const char* fix;
  void (*breakIt)(Described& machine);
};

const Row kRows[] = {
    {"library", State::Fault, "not there", "cmake --install",
     [](auto& m) { m.library.problem = "not there"; }},
    {"library", State::Fault, "not there", "sudo ldconfig /usr/local/lib",
     [](auto& m) { m.library.problem = "not there", m.write("/usr/local/lib/libquorvio.so.2"); }},
    {"library", State::Fault, "another library", "unset LD_LIBRARY_PATH",
     [](auto& m) { m.library.version.clear(), m.libraryPath = "/opt"; }},
    {"library", State::Note, "version 2.0.0", "", [](auto& m) { m.library.version = "2.0.0"; }},
    {"ftdi-libraries", State::Fault, "does not find it", "install -m 755 libftd2xx.so",
     [](auto& m) { m.remove("/usr/lib/libftd2xx.so"); }},
    {"ftdi-libraries", State::Fault, "does not find it", "quorvio-driver.conf",
     [](auto& m) {
       m.remove("/usr/lib/libftd2xx.so");
       m.write(QVIO_DRIVER_FOLDER "/libftd2xx.so", "");
     }},
    {"ftdi-libraries", State::Fault, "does not find it",
     "ln -s libftchipid.so.0.1 /usr/local/lib/libftchipid.so",
     [](auto& m) { m.remove("/usr/lib/libftchipid.so"), m.write("/usr/local/lib/libftchipid.so.0.1"); }},
    {"ftdi-libraries", State::Fault, "another machine (machine 257, 32 bits)",
     "install -m 755 libftd2xx.so /usr/lib/libftd2xx.so",
     [](auto& m) { m.remove("/usr/lib/libftd2xx.so"), m.write("/usr/lib/libftd2xx.so", kForeignElf); }},
    {"ftdi-libraries", State::Fault, "/opt/libftd2xx.so is not a library", "install",
     [](auto& m) { m.libraryPath = "/opt", m.write("/opt/libftd2xx.so", "text"); }},
    {"ftdi-libraries", State::Fault, "lacks FT_SetUSBParameters", "install",
     [](auto& m) {
       m.loaderCache = "\tlibftd2xx.so (libc6) => /old/libftd2xx.so\n";
       m.link("/old/libftd2xx.so", STAND_IN_FOLDER "/old/libftd2xx.so");
     }},
    {"ftdi-libraries", State::Fault, "libusb", "ldd /usr/lib", [](auto& m) { m.driverProblem = "libusb"; }},
    {"ftdi-libraries", State::Note, "only devices on usb:", "",
     [](auto& m) { m.remove("/usr/lib"), m.remove("/sys/bus/usb/devices/1-2"); }},
    {"usb-chips", State::Fault, "ftdi_sio holds it", "echo 1-2:1.0 | sudo tee",
     [](auto& m) { m.link("/sys/bus/usb/devices/1-2:1.0/driver", "../../drivers/ftdi_sio"); }},
    {"usb-chips", State::Fault, "ModemManager (pid 4999999)", "kill 4999999",
     [](auto& m) { m.open("/dev/bus/usb/001/004"); }},
    {"usb-chips", State::Fault, "belongs to", "70-ftdi.rules",
     [](auto& m) { m.forbidden = "/dev/bus/usb/001/004"; }},
    {"usb-chips", State::Fault, "belongs to", "sudo cmake --install",
     [](auto& m) {
       m.forbidden = "/dev/bus/usb/001/004";
       m.write("/sys/bus/usb/devices/1-2/product", "Quorvi DRV2\n");
     }},
    {"usb-chips", State::Fault, "does not exist", "udevadm", [](auto& m) { m.remove("/dev/bus/usb"); }},
    {"usb-chips", State::Unknown, "no USB bus", "", [](auto& m) { m.remove("/sys/bus"); }},
    {"serial-ports", State::Fault, "belongs to", "sudo", [](auto& m) { m.forbidden = "/dev/ttyUSB0"; }},
    {"serial-ports", State::Fault, "is missing", "udevadm", [](auto& m) { m.remove("/dev/ttyUSB0"); }},
    {"serial-ports", State::Fault, "ModemManager", "kill 4999999", [](auto& m) { m.open("/dev/ttyUSB0"); }},
    {"serial-ports", State::Note, "may open", "disable --now ModemManager",
     [](auto& m) { m.remove("/run/udev"); }},
    {"interfaces", State::Fault, "no link", "", [](auto& m) { m.write("/sys/class/net/eth0/carrier", "0"); }},
    {"interfaces", State::Note, "is down", "ip link set eth1 up",
     [](auto& m) { m.write("/proc/net/dev", "eth1: 1 2\n"), m.write("/sys/class/net/eth1/device/vendor"); }},
    {"udp-ports", State::Fault, "in use: ModemManager", "kill 4999999",
     [](auto& m) { m.refusedPort = 65110, m.write("/proc/net/udp6", kPortTaken), m.open("socket:[77]"); }},
    {"udp-ports", State::Fault, "in use", "sport = :65111", [](auto& m) { m.refusedPort = 65111; }},
    {"multicast", State::Fault, "switched off", "ip link set eth0 multicast on",
     [](auto& m) { m.write("/sys/class/net/eth0/flags", "0x3"); }},
    {"multicast", State::Fault, "no answer", "nft list", [](auto& m) { m.silence = "no answer"; }},
    {"firewall", State::Fault, "eth0 UDP 65110,eth0 UDP 65111", "nft insert rule inet filter input udp dport",
     [](auto& m) { m.firewall->erase(m.firewall->find("\t\tjump"), 12); }},
    {"firewall", State::Fault, "devices: eth0 UDP 65110", "nft insert",
     [](auto& m) { m.addInput(R"(iifname "eth*" ip daddr 224.0.0.0/4 log prefix "no " counter drop)"); }},
    {"firewall", State::Fault, "devices: eth0 UDP 65111", "iptables -t filter -I INPUT",
     [](auto& m) { m.firewall = kIptables; }},
    {"firewall", State::Unknown, "may drop", "nft", [](auto& m) { m.addInput("ip saddr @ours drop"); }},
    {"firewall", State::Unknown, "only root", "sudo qvio doctor", [](auto& m) { m.firewall.reset(); }},
    {"routes", State::Fault, "no route",
     "qvio config set 'A'\\''1' --type 7 --iface 192.168.0.2 --ip 192.168.0.10 --mask 255.255.255.0 ",
     [](auto& m) { m.device().host = "10.0.0.9", m.route(kRoute); }},
    {"routes", State::Fault, "gateway 192.168.0.1", "config set",
     [](auto& m) { m.device().host = "10.0.0.9"; }},
    {"routes", State::Fault, "has no address", "config set", [](auto& m) { m.device().host = "0.0.0.0"; }},
    {"routes", State::Fault, "device A'1 too", "--ip 192.168.0.11",
     [](auto& m) { m.addDevice("B", "192.168.0.10"); }},
    {"routes", State::Fault, "eth1, but the device is on eth0", "ip route add 192.168.0.10 dev eth0",
     [](auto& m) { m.route(std::string(kOtherRoute) + kRoute); }},
    {"routes", State::Note, "in use by another", "", [](auto& m) { m.device().available = false; }},
    {"routes", State::Unknown, "no socket", "", [](auto& m) { m.searchProblem = "no socket"; }},
    {"receive-buffer", State::Fault, "184 devices", "rmem_max=4194304",
     [](auto& m) {
       for (int i = 0; i < 184; ++i) m.addDevice(std::to_string(i), "192.168.0." + std::to_string(11 + i));
     }},
};

TEST(Doctor, FindsExactlyWhatIsBroken) {
  for (const auto& finding : Diagnose(Described())) EXPECT_EQ(finding.state, State::Ok) << finding.text;
  for (const auto& row : kRows) {
    Described machine;
    row.breakIt(machine);
    auto findings = Diagnose(machine);
    std::erase_if(findings, [](const Finding& finding) { return finding.state == State::Ok; });
    std::string all;
    for (const auto& finding : findings)
      all += finding.check + ": " + finding.text + "\n  " + finding.fix + '\n';
    SCOPED_TRACE(std::string(row.check) + ": " + row.text + "\nbut found\n" + all);
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(findings[0].check, row.check);
    EXPECT_EQ(findings[0].state, row.state);
    EXPECT_NE(findings[0].text.find(row.text), std::string::npos);
    EXPECT_NE(findings[0].fix.find(row.fix), std::string::npos);
  }
}

/// The states of the findings, by check and subject.
std::map<std::string, std::string> RunDoctor() {
  const auto outcome = RunQvio({"doctor", "--json"});
  std::map<std::string, std::string> states;
  bool isFaulty = false;
  for (const auto& finding : nlohmann::json::parse(outcome.output)) {
    states[finding["check"].get<std::string>() + ' ' + finding["subject"].get<std::string>()] =
        finding["state"].get<std::string>() + ' ' + finding["fix"].get<std::string>();
    isFaulty |= finding["state"] == "fault";
  }
  EXPECT_EQ(outcome.status, isFaulty ? 1 : 0) << outcome.output << outcome.errors;
  return states;
}

TEST(Doctor, KnowsThatOurDriverTakesChipsFromTheKernel) {
  if (!fs::exists(OWN_DRIVER_FOLDER "/libftd2xx.so")) GTEST_SKIP() << "built without the driver";
  const Described machine;
  machine.link("/sys/bus/usb/devices/1-2:1.0/driver", "../../drivers/ftdi_sio");
  machine.link("/usr/lib/libftd2xx.so", OWN_DRIVER_FOLDER "/libftd2xx.so");
  for (const auto& finding : Diagnose(machine)) EXPECT_EQ(finding.state, State::Ok) << finding.text;
}

TEST(Doctor, ChecksThisMachine) {
  const PrivateNetwork network;
  if (!network.entered()) GTEST_SKIP() << PrivateNetwork::kForbidden;
  ASSERT_TRUE(PrivateNetwork::addPair("qvD", "10.77.9.1"));
  {
    Controllers controllers("10.77.9.1");
    controllers.add("D-1");
    auto states = RunDoctor();
    EXPECT_EQ(states["interfaces qvD 10.77.9.1"], "ok ");
    EXPECT_EQ(states["udp-ports UDP 65110"], "ok ");
    EXPECT_EQ(states["multicast qvD 10.77.9.1"], "ok ");
    EXPECT_EQ(states["routes D-1"], "ok ");
  }
  const cppu::UniqueFd greedy(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const sockaddr_in name{.sin_family = AF_INET, .sin_port = htons(65110), .sin_addr = {}, .sin_zero = {}};
  ASSERT_EQ(::bind(greedy.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
  auto states = RunDoctor();
  EXPECT_EQ(states["udp-ports UDP 65110"], "fault kill " + std::to_string(::getpid()));
  EXPECT_EQ(states["udp-ports UDP 65111"], "ok ");
}

}  // namespace
}  // namespace qvtest
