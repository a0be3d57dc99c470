// A provider of the test's own: it answers the calls from what the test has put into it, and remembers what it
// was asked. A port that the test has not described has nothing.
#ifndef TESTS_INBAND_SCRIPTED_PROVIDER_H_
#define TESTS_INBAND_SCRIPTED_PROVIDER_H_

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "rmapi/rmapi.h"

HBA_NAME Name(std::uint64_t wwn);

// Builders of records; a node exists and is ready unless told otherwise.
RM_NodeInfoEntry Node(std::uint64_t wwpn, std::uint32_t state = RM_NODE_EXISTS | RM_NODE_READY);
_RM_ISCSI_TARGET ISCSITarget(const std::string& name, std::uint8_t flags = 0);
RM_VPortTargetEntry VPortTarget(std::uint64_t wwpn);
HBA_info_v4 Info(std::uint64_t wwpn, std::uint32_t features = 0);

struct Attribute {
  std::uint32_t type = RM_ATTRIBUTE_U32;
  std::string bytes;
  bool withoutValue = false;  // status 0, but no value

  static Attribute Text(const std::string& text);
  static Attribute Number(std::uint32_t number);
  static Attribute Wwn(std::uint64_t wwn);
};

struct ScriptedVPort {
  std::uint64_t wwpn = 0;
  std::uint64_t wwnn = 0;
  std::vector<RM_VPortTargetEntry> targets;
};

struct ScriptedPort {
  std::map<unsigned int, Attribute> attributes;
  std::vector<RM_NodeInfoEntry> nodes;
  std::vector<ScriptedVPort> vports;
  std::vector<_RM_ISCSI_TARGET> iscsiTargets;
  std::vector<HBA_NAME> functions;
  std::string initiatorName, defaultName, alias;
  unsigned int driverType = 0;
  unsigned int bindType = 1;
};

struct ScriptedBoard {
  unsigned int instance = 0;
  unsigned int linkStatus = 1;
  HBA_info_v4 info{};
};

// What one coming call answers instead of the truth. A count is written back, nothing is copied.
struct Step {
  int status = 0;
  std::optional<std::uint32_t> count = {};
};

class ScriptedProvider {
 public:
  ScriptedProvider() { s_Current = this; }
  ~ScriptedProvider() { s_Current = nullptr; }
  ScriptedProvider(const ScriptedProvider&) = delete;
  ScriptedProvider& operator=(const ScriptedProvider&) = delete;

  // ---- What is there; filled before calls are made ----
  std::vector<ScriptedBoard> boards;
  std::map<std::uint64_t, ScriptedPort> ports;
  std::set<std::uint64_t> varnixPorts;
  bool isCimHost = false;
  bool overfullIsSuccess = false;        // too little room for nodes answers 0
  std::optional<unsigned int> usedSize;  // of an attribute buffer, when not the truth
  std::string adapterType = "model by number";

  ScriptedBoard& AddBoard(const HBA_info_v4& info);

  // ---- Faults, by the name of the call ----
  void Script(const std::string& call, std::vector<Step> steps);
  // Runs at the start of each such call, on the calling thread.
  void OnCall(const std::string& call, std::function<void()> action);

  // ---- What was asked ----
  int Calls(const std::string& call) const;
  std::vector<std::uint32_t> Rooms(const std::string& call) const;
  std::set<unsigned int> LookedUp() const;  // attribute numbers
  std::atomic<std::uint64_t> lastProxy{0};
  std::atomic<int> lastRefresh{-1};
  std::atomic<unsigned int> lastModelId{0};

  // ---- For the doubles ----
  std::optional<Step> Enter(const std::string& call, std::optional<std::uint32_t> room = {});
  const ScriptedPort& PortOf(const unsigned char* wwn) const;
  void NoteLookUp(unsigned int id);
  static ScriptedProvider* s_Current;

 private:
  mutable std::mutex m_Lock;
  std::map<std::string, std::deque<Step>> m_Steps;
  std::map<std::string, std::function<void()>> m_Actions;
  std::map<std::string, int> m_Calls;
  std::map<std::string, std::vector<std::uint32_t>> m_Rooms;
  std::set<unsigned int> m_LookedUp;
};

#endif  // TESTS_INBAND_SCRIPTED_PROVIDER_H_
