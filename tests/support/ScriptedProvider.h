// A provider of the test's own: it answers the calls from what the test has put into it, and remembers what it
// was asked. A port that the test has not described has nothing.
#ifndef TESTS_SUPPORT_SCRIPTEDPROVIDER_H_
#define TESTS_SUPPORT_SCRIPTEDPROVIDER_H_

#include <deque>

#include "rmapi/rmapi.h"
#include "tests/support/Ports.h"
#include "tests/support/Testing.h"

struct Attribute {
  std::uint32_t type = RM_ATTRIBUTE_U32;
  std::string bytes;
  bool withoutValue = false;  // status 0, but no value

  static Attribute Text(const std::string& text);
  static Attribute Number(std::uint32_t number);
  static Attribute Wwn(std::uint64_t wwn);
};
using Attributes = std::map<unsigned int, Attribute>;

struct ScriptedVPort {
  std::uint64_t wwpn = 0;
  std::uint64_t wwnn = 0;
  std::vector<RM_VPortTargetEntry> targets;
};

struct ScriptedPort {
  Attributes attributes;
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

  ScriptedBoard& AddBoard(const HBA_info_v4& info) {
    return boards.emplace_back(ScriptedBoard{100 + static_cast<unsigned int>(boards.size()), 1, info});
  }

  // ---- Faults, by the name of the call ----
  void Script(const std::string& call, const std::vector<Step>& steps);  // and counts its calls anew
  // Runs at the start of each such call, on the calling thread.
  void OnCall(const std::string& call, std::function<void()> action) {
    const std::lock_guard guard(m_Lock);
    m_Calls[call].action = std::move(action);
  }

  // ---- What was asked ----
  int Calls(const std::string& call) { return static_cast<int>(Rooms(call).size()); }
  std::vector<std::uint32_t> Rooms(const std::string& call) {
    const std::lock_guard guard(m_Lock);
    return m_Calls[call].rooms;
  }
  std::atomic<std::uint64_t> lastProxy{0};
  std::atomic<int> lastRefresh{-1};

  // ---- For the doubles ----
  std::optional<Step> Enter(const std::string& call, std::uint32_t room = 0);
  int Status(const std::string& call) { return Enter(call).value_or(Step{}).status; }
  const ScriptedPort& PortOf(const unsigned char* wwn) const;
  static inline ScriptedProvider* s_Current = nullptr;

 private:
  struct Call {
    std::deque<Step> steps;
    std::function<void()> action;
    std::vector<std::uint32_t> rooms;  // one for each call
  };
  std::mutex m_Lock;
  std::map<std::string, Call> m_Calls;
};

// A buffer of attributes holds the place of this map alone.
void FillAttributes(const Attributes& attributes, void* buffer);

#endif  // TESTS_SUPPORT_SCRIPTEDPROVIDER_H_
