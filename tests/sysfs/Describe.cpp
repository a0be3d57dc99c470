#include "tests/sysfs/Describe.h"

#include <iomanip>
#include <sstream>

#include "provider/host/WorldWideName.h"

namespace sysfs_test {

using provider::Answer;
using provider::FormatWwn;
using provider::Host;
using provider::ListAnswer;
using provider::Wwn;
using provider::WwnFromBytes;

namespace {

std::string Hex(std::uint64_t number) {
  std::ostringstream text;
  text << "0x" << std::hex << number;
  return text.str();
}

// A target as the two kinds of record have it.
template <class Record>
std::string Path(const Record& record) {
  std::ostringstream text;
  text << record.bus << ':' << record.target << ':' << record.lun << ' '
       << FormatWwn(WwnFromBytes(record.portWwn)) << ' ' << Hex(record.fcAddressId);
  if (record.osDeviceName[0] != '\0') text << ' ' << record.osDeviceName;
  return text.str();
}

// Nothing for what was answered.
std::string Refusal(const char* what, int status) {
  return status == RM_STATUS_OK ? std::string()
                                : std::string(what) + " status " + std::to_string(status) + '\n';
}

std::string DescribeVirtualPorts(Host& host, const Wwn& wwn) {
  std::ostringstream text;
  const ListAnswer<RM_VPortEntry> ports = host.VirtualPorts(wwn);
  text << Refusal("  vports", ports.status);
  for (const RM_VPortEntry& port : ports.records) {
    const Wwn portName = WwnFromBytes(port.portWwn);
    text << "  vport " << FormatWwn(portName) << " node " << FormatWwn(WwnFromBytes(port.nodeWwn)) << '\n';
    const ListAnswer<RM_VPortTargetEntry> targets = host.VirtualPortTargets(wwn, portName);
    text << Refusal("    targets", targets.status);
    for (const RM_VPortTargetEntry& target : targets.records) {
      text << "    target " << Path(target) << '\n';
    }
  }
  return text.str();
}

}  // namespace

Wwn Name(std::uint64_t number) {
  return provider::WwnFromNumber(number);
}

std::string DescribeNodes(const ListAnswer<RM_NodeInfoEntry>& answer) {
  std::ostringstream text;
  text << Refusal("  nodes", answer.status);
  for (const RM_NodeInfoEntry& node : answer.records) {
    const bool isReady = (node.nodeState & RM_NODE_READY) != 0;
    text << "  node " << Path(node) << (isReady ? " ready" : " not ready") << '\n';
  }
  return text.str();
}

std::string DescribeBoard(Host& host, unsigned int instance) {
  const Answer<provider::Board> board = host.ReadBoard(instance);
  std::ostringstream text;
  text << "board " << instance;
  if (board.status != RM_STATUS_OK) {
    text << " status " << board.status << '\n';
    return text.str();
  }
  const Wwn wwn = WwnFromBytes(board.value.info.portWwn);
  text << ' ' << FormatWwn(wwn) << " link " << Hex(board.value.linkStatus) << " fabric "
       << FormatWwn(WwnFromBytes(board.value.info.fabricName)) << '\n'
       << DescribeNodes(host.Nodes(wwn)) << DescribeVirtualPorts(host, wwn);
  return text.str();
}

std::string Describe(Host& host) {
  const ListAnswer<unsigned int> boards = host.BoardInstances();
  std::ostringstream text;
  text << "boards " << boards.status << '\n';
  for (const unsigned int instance : boards.records) text << DescribeBoard(host, instance);
  return text.str();
}

std::set<int> StatusesOf(Host& host, const Wwn& wwn) {
  std::set<int> statuses = {host.DiscoveryAttributes(wwn).status, host.HbaAttributes(wwn).status,
                            host.PortAttributes(wwn).status,      host.ServerAttributes(wwn).status,
                            host.DriverType(wwn).status,          host.BindType(wwn).status,
                            host.InitiatorProperties(wwn).status, host.Nodes(wwn).status,
                            host.IscsiTargets(wwn, true).status,  host.VirtualFunctions(wwn).status};
  const ListAnswer<RM_VPortEntry> ports = host.VirtualPorts(wwn);
  statuses.insert(ports.status);
  for (const RM_VPortEntry& port : ports.records) {
    statuses.insert(host.VirtualPortTargets(wwn, WwnFromBytes(port.portWwn)).status);
  }
  return statuses;
}

}  // namespace sysfs_test
