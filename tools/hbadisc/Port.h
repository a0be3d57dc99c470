// One adapter port as the tool shows it: plain values, read once out of the library's records.
//
// Texts are the bytes of the records, bounded, of whatever encoding; the writers make them presentable. An
// empty optional (or text) is something the port does not tell.
//
// Thread safety: plain values. Ownership: every structure owns what it holds.
#ifndef TOOLS_HBADISC_PORT_H_
#define TOOLS_HBADISC_PORT_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/hbadisc/Wwn.h"

namespace hbadisc {

enum class PortKind { Fc, Fcoe, Iscsi, Nic, NicRoce };

enum class Link { Unknown, Up, Down, OverTemperature };

struct FcTarget {
  Wwn wwpn;
  std::optional<Wwn> wwnn;
  std::optional<std::uint32_t> bus;
  std::optional<std::uint32_t> target;
  std::optional<std::uint32_t> lun;
  std::uint64_t fcpLun = 0;
  std::string device;
  std::optional<std::uint32_t> fcAddressId;
  std::uint32_t bindType = 0;
  bool ready = false;
};

struct IscsiTarget {
  std::string name;
  std::string secondName;
  bool hasSessions = false;
  bool connected = false;
};

struct VirtualPort {
  Wwn wwpn;
  std::optional<Wwn> wwnn;
  std::uint32_t targetCount = 0;
  std::vector<FcTarget> targets;
};

struct IscsiNames {
  std::string initiatorName;
  std::string defaultName;
  std::string alias;
};

// The host that a remote port was reported by.
struct Proxy {
  std::string address;
  std::optional<std::uint16_t> port;
  bool cim = false;
};

// Where the port sits on its adapter and in the machine.
struct Position {
  std::optional<std::uint16_t> portNumber;
  std::optional<std::uint16_t> pciFunction;
  std::optional<std::uint16_t> pciBus;
  std::optional<std::uint16_t> subAdapter;
  std::string vpdPortNumber;
};

// What is read only on request.
struct PortDetails {
  std::vector<FcTarget> fcTargets;
  std::vector<IscsiTarget> iscsiTargets;
  std::vector<VirtualPort> virtualPorts;
  std::vector<Wwn> virtualFunctions;
  std::optional<IscsiNames> iscsiNames;
};

// Why a port could not be asked the last time; all that is shown of it is older.
struct Silence {
  int status = 0;
  std::string reason;      // in words
  std::int64_t since = 0;  // milliseconds since the epoch
};

struct Port {
  Wwn wwpn;
  std::optional<Wwn> wwnn;
  std::optional<Wwn> fabricName;
  bool local = false;
  PortKind kind = PortKind::Fc;
  std::uint32_t specialFeatures = 0;
  Link link = Link::Unknown;
  Link functionLink = Link::Unknown;
  std::string model;
  std::uint32_t modelNumber = 0;
  bool targetMode = false;
  std::string manufacturer;
  std::string serialNumber;
  std::string system;
  Position position;
  std::uint32_t targetCount = 0;
  std::uint32_t targetBindType = 0;
  std::uint32_t vportCount = 0;
  std::uint32_t vfCount = 0;
  std::vector<Wwn> foundOn;
  std::optional<Proxy> via;
  bool proxyOnly = false;
  std::optional<Silence> silence;
  std::optional<std::uint64_t> linkSpeed;      // bit/s
  std::vector<std::uint64_t> supportedSpeeds;  // bit/s, ascending; empty: unknown
  std::string firmwareVersion;
  std::string driverName;
  std::string driverVersion;
  std::string bootVersion;
  std::string pciAddress;
  std::string partNumber;
  std::optional<std::uint32_t> lunCount;
  std::optional<std::uint32_t> blockDeviceCount;
  std::string blockDevices;  // names with blanks between
  std::optional<PortDetails> details;
};

// Whose ports are wanted.
enum class Scope { Everywhere, LocalHost, RemoteHosts };

}  // namespace hbadisc

#endif  // TOOLS_HBADISC_PORT_H_
