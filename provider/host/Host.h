// What a host can be asked: its boards, their attributes, targets, virtual ports and functions.
//
// The one abstraction of the open provider. FabricHost answers from a fabric file, SysfsHost from the Linux
// kernel, RemoteHost by asking the agent of another host. The C entry points choose a host and translate; they
// hold no logic of their own, and the agent serves any host.
//
// Thread safety: every call may be made from any thread, several at once. A call blocks for as long as the host
// takes to answer, never longer than the limit of its implementation.
#ifndef PROVIDER_HOST_HOST_H_
#define PROVIDER_HOST_HOST_H_

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "rmapi/rmapi.h"

namespace provider {

// A world-wide name, most significant byte first.
using Wwn = std::array<std::uint8_t, 8>;

// A status of rmapi.h and, when it is RM_STATUS_OK (or RM_STATUS_OVER_TEMPERATURE), a value.
template <class T>
struct Answer {
  int status = RM_STATUS_OK;
  T value{};
};

// A list of records. A host that is scripted to answer wrongly says in `claimedCount` which count the caller is
// told in place of the number of records.
template <class Record>
struct ListAnswer {
  int status = RM_STATUS_OK;
  std::vector<Record> records;
  std::optional<std::uint32_t> claimedCount;
};

struct Board {
  HBA_info_v4 info{};
  std::uint32_t linkStatus = 0;
};

struct IscsiNames {
  std::string initiatorName;
  std::string defaultName;
  std::string alias;
};

using AttributeValue = std::variant<std::string, std::uint32_t, Wwn>;

// By attribute id, as RM_GetAttributeValue is asked for it.
using Attributes = std::map<unsigned int, AttributeValue>;

class Host {
 public:
  virtual ~Host() = default;

  // Between these two calls a host may answer a question again from what it has read.
  virtual void BeginLook() {}
  virtual void EndLook() {}

  // Numbers by which ReadBoard knows the boards, one board a port, in a stable order.
  virtual ListAnswer<unsigned int> BoardInstances() = 0;
  virtual Answer<Board> ReadBoard(unsigned int instance) = 0;

  // The names of all boards' ports.
  virtual ListAnswer<HBA_NAME> PortNames() { return PortNamesOfBoards(*this); }

  virtual bool HasPort(const Wwn& wwn) = 0;
  // Whether a port, on any host, is one of the maker's.
  virtual bool IsMakersPort(const Wwn& wwn) = 0;
  // The same when it is known without reading anything.
  virtual std::optional<bool> MakersPortInMemory(const Wwn& /*wwn*/) { return std::nullopt; }

  // RM_STATUS_NOT_SUPPORTED when the port only has the legacy set of HbaAttributes.
  virtual Answer<Attributes> DiscoveryAttributes(const Wwn& wwn) = 0;
  virtual Answer<Attributes> HbaAttributes(const Wwn& wwn) = 0;
  virtual Answer<Attributes> PortAttributes(const Wwn& wwn) = 0;
  virtual Answer<Attributes> ServerAttributes(const Wwn& wwn) = 0;

  virtual Answer<std::uint32_t> DriverType(const Wwn& wwn) = 0;
  virtual Answer<std::uint32_t> BindType(const Wwn& wwn) = 0;
  virtual Answer<IscsiNames> InitiatorProperties(const Wwn& wwn) = 0;

  virtual ListAnswer<RM_NodeInfoEntry> Nodes(const Wwn& wwn) = 0;
  virtual ListAnswer<RM_VPortEntry> VirtualPorts(const Wwn& wwn) = 0;
  virtual ListAnswer<RM_VPortTargetEntry> VirtualPortTargets(const Wwn& wwn, const Wwn& vportWwn) = 0;
  virtual ListAnswer<_RM_ISCSI_TARGET> IscsiTargets(const Wwn& wwn, bool refresh) = 0;
  virtual ListAnswer<HBA_NAME> VirtualFunctions(const Wwn& wwn) = 0;

  virtual Answer<bool> SecureManagement() = 0;

 private:
  static ListAnswer<HBA_NAME> PortNamesOfBoards(Host& host);
};

// A board that cannot be read, or is gone by then, has no name to tell.
inline ListAnswer<HBA_NAME> Host::PortNamesOfBoards(Host& host) {
  const ListAnswer<unsigned int> instances = host.BoardInstances();
  ListAnswer<HBA_NAME> answer;
  answer.status = instances.status;
  for (const unsigned int instance : instances.records) {
    const Answer<Board> board = host.ReadBoard(instance);
    if (board.status != RM_STATUS_OK && board.status != RM_STATUS_OVER_TEMPERATURE) continue;
    HBA_NAME name{};
    std::copy(std::begin(board.value.info.portWwn), std::end(board.value.info.portWwn), name.wwn);
    answer.records.push_back(name);
  }
  return answer;
}

}  // namespace provider

#endif  // PROVIDER_HOST_HOST_H_
