#include "provider/sysfs/SysfsPort.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace provider {

namespace {

constexpr char kFcHosts[] = "class/fc_host";

struct OpenDevice {
  SysfsDirectory directory;
  DevicePath path;
};

bool IsOfVirtualPort(const DevicePath& path) {
  return std::any_of(path.Names().begin(), path.Names().end(), IsVirtualPortName);
}

// The nearest PCI function above the device.
std::optional<PciDevice> PciAbove(const OpenDevice& device) {
  const std::vector<std::string>& names = device.path.Names();
  for (std::size_t i = names.size(); i-- > 0;) {
    const std::optional<PciAddress> address = ParsePciAddress(names[i]);
    if (!address.has_value()) continue;
    const SysfsDirectory function = device.directory.Open(device.path.WayTo(i));
    const auto id = [&function](const char* file) { return ParseHex(function.Text(file)).value_or(0); };
    const std::string driver = function.LinkText("driver");
    return PciDevice{*address,
                     PrintableText(names[i]),
                     id("vendor"),
                     id("device"),
                     id("subsystem_vendor"),
                     id("subsystem_device"),
                     PrintableText(driver.substr(driver.rfind('/') + 1))};
  }
  return std::nullopt;
}

// The one device that a VLAN or similar device is made of; a bond of several belongs to no adapter.
std::optional<OpenDevice> LowerDevice(const SysfsDirectory& net) {
  std::vector<std::string> names = net.Names();
  std::erase_if(names, [](const std::string& name) { return !name.starts_with("lower_"); });
  if (names.size() != 1) return std::nullopt;
  return OpenDevice{net.Open(names[0]), DevicePath(net.LinkText(names[0]))};
}

// FCoE mostly runs on a network device without hardware of its own, which leads to the adapter's step by step.
std::optional<PciDevice> PciUnder(const SysfsDirectory& net) {
  constexpr int kMostLayers = 4;
  std::optional<OpenDevice> lower = LowerDevice(net);
  for (int layer = 0; lower.has_value() && layer < kMostLayers; ++layer) {
    std::optional<PciDevice> pci = PciAbove(*lower);
    if (pci.has_value()) return pci;
    lower = LowerDevice(lower->directory);
  }
  return std::nullopt;
}

std::optional<std::size_t> NetDeviceIndex(const DevicePath& path) {
  const std::vector<std::string>& names = path.Names();
  for (std::size_t i = names.size(); i-- > 1;) {
    if (names[i - 1] == "net") return i;
  }
  return std::nullopt;
}

NetDevice ReadNetDevice(const SysfsDirectory& net, const std::string& name) {
  return {PrintableText(name), net.Text("address"), ParseDecimal(net.Text("dev_port")).value_or(0),
          net.Text("carrier") == "1"};
}

bool IsFcoeDriver(const std::string& driver) {
  static constexpr std::array<std::string_view, 4> kDrivers = {"fcoe", "bnx2fc", "qedf", "fnic"};
  return std::find(kDrivers.begin(), kDrivers.end(), driver) != kDrivers.end();
}

bool IsUnderFcoeController(const DevicePath& path) {
  return std::any_of(path.Names().begin(), path.Names().end(),
                     [](const std::string& name) { return name.starts_with("ctlr_"); });
}

// A driver that does not say prints a null pointer.
std::string DriverName(const SysfsDirectory& scsiHost) {
  std::string name = scsiHost.Text("proc_name");
  return name == "(null)" || name == "<NULL>" ? std::string() : name;
}

// The name, when there is one; else why not.
int ParseName(const SysfsReading& reading, Wwn& portName) {
  if (IsAbsent(reading.error)) return RM_STATUS_NOT_FOUND;
  // The kernel leaves no file empty that it lets one read.
  if (reading.content.empty()) return RM_STATUS_LOCKED;
  const std::optional<Wwn> name = ParseFcName(FirstLine(reading.content));
  if (!name.has_value()) return RM_STATUS_NOT_FOUND;
  portName = *name;
  return RM_STATUS_OK;
}

bool IsTargetOnly(const std::string& mode) {
  return mode.find("Target") != std::string::npos && mode.find("Initiator") == std::string::npos;
}

}  // namespace

std::vector<unsigned int> FcPortNumbers(const SysfsDirectory& root) {
  std::vector<unsigned int> numbers;
  const SysfsDirectory hosts = root.Open(kFcHosts);
  for (const std::string& name : hosts.Names()) {
    const std::optional<unsigned int> number = ParseScsiHostName(name);
    if (!number.has_value() || IsOfVirtualPort(DevicePath(hosts.LinkText(name)))) continue;
    const SysfsDirectory host = hosts.Open(name);
    if (host.IsOpen() || !IsAbsent(host.Error())) numbers.push_back(*number);
  }
  std::sort(numbers.begin(), numbers.end());
  return numbers;
}

std::vector<FcPortName> ReadFcPortNames(const SysfsDirectory& root) {
  std::vector<FcPortName> ports;
  const SysfsDirectory hosts = root.Open(kFcHosts);
  for (const std::string& host : hosts.Names()) {
    const std::optional<unsigned int> number = ParseScsiHostName(host);
    if (!number.has_value()) continue;
    const SysfsReading reading = hosts.Read(host + "/port_name");
    FcPortName& port = ports.emplace_back();
    port.number = *number;
    port.isVirtual = IsOfVirtualPort(DevicePath(hosts.LinkText(host)));
    port.status = ParseName(reading, port.name);
  }
  return ports;
}

FcPort::FcPort(const SysfsDirectory& root, unsigned int hostNumber)
    : number(hostNumber),
      path(root.LinkText(kFcHosts + ('/' + ScsiHostName(hostNumber)))),
      directory(root.Open(kFcHosts + ('/' + ScsiHostName(hostNumber)))) {}

int FcPort::ReadName() {
  if (IsOfVirtualPort(path)) return RM_STATUS_NOT_FOUND;
  return ParseName(directory.Read("port_name"), portName);
}

bool FcPort::IsStillThere() const {
  return ParseFcName(directory.Text("port_name")) == portName;
}

FcPortFacts ReadFcPortFacts(const FcPort& port) {
  const SysfsDirectory& directory = port.directory;
  const SysfsDirectory scsiHost = port.ScsiHost().Open("scsi_host/" + ScsiHostName(port.number));
  FcPortFacts facts;
  facts.portName = port.portName;
  facts.nodeName = ParseFcName(directory.Text("node_name")).value_or(Wwn{});
  facts.fabricName = ParseFcName(directory.Text("fabric_name")).value_or(Wwn{});
  facts.isOnline = directory.Text("port_state") == "Online";
  facts.manufacturer = directory.Text("manufacturer");
  facts.model = directory.Text("model");
  facts.modelDescription = directory.Text("model_description");
  facts.serialNumber = directory.Text("serial_number");
  facts.symbolicName = directory.Text("symbolic_name");
  facts.driver = DriverName(scsiHost);
  facts.isFcoe = IsFcoeDriver(facts.driver) || IsUnderFcoeController(port.path);
  facts.isTargetMode = IsTargetOnly(scsiHost.Text("active_mode"));
  facts.pci = PciAbove({directory.Open("."), port.path});
  const std::optional<std::size_t> net = NetDeviceIndex(port.path);
  if (net.has_value()) {
    const SysfsDirectory netDirectory = directory.Open(port.path.WayTo(*net));
    facts.net = ReadNetDevice(netDirectory, port.path.Names()[*net]);
    if (!facts.pci.has_value()) facts.pci = PciUnder(netDirectory);
  }
  return facts;
}

}  // namespace provider
