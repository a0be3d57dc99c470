// The remote half of the test's own provider: hosts with ports, the look-up tables, and locks that are files.
// Faults are scripted in the ScriptedProvider, by the name of the call; RM_GetAllNodeAddr also by the name and
// the host: "RM_GetAllNodeAddr of 10.0.0.1".
#ifndef TESTS_OOB_REMOTE_PROVIDER_H_
#define TESTS_OOB_REMOTE_PROVIDER_H_

#include "rmapi/rmapi.h"
#include "tests/support/RecordedLog.h"
#include "tests/support/ScriptedProvider.h"
#include "tests/support/Testing.h"

class RemoteProvider {
 public:
  RemoteProvider();
  ~RemoteProvider();  // fails when a lock is held still
  RemoteProvider(const RemoteProvider&) = delete;
  RemoteProvider& operator=(const RemoteProvider&) = delete;

  // A host that answers, with one readable port per name.
  void SetPorts(const std::string& address, const std::vector<std::uint64_t>& ports);
  std::vector<std::uint64_t> PortsOf(const std::string& address) {
    const std::lock_guard guard(m_Lock);
    return m_Hosts[address];
  }
  std::set<std::string> Registered() const {
    const std::lock_guard guard(m_Lock);
    return m_Registered;
  }
  void Register(const std::string& address, bool there) {
    const std::lock_guard guard(m_Lock);
    m_Registered.erase(address);
    if (there) m_Registered.insert(address);
  }

  std::string HostsFile() const { return Read("hbahosts.lst"); }
  std::string Read(const std::string& name) const;
  void Write(const std::string& name, const std::string& text) const;
  bool Exists(const std::string& name) const { return std::filesystem::exists(folder / name); }

  ScriptedProvider scripted;
  RecordedLog log;
  std::filesystem::path folder;
  bool hasFolder = true;
  Attributes serverAttributes{{257, Attribute::Text("server7")}};
  std::set<std::uint64_t> localPorts;
  std::map<std::string, CIMCredentials> cimTable;
  std::atomic<int> cacheFlags{0};
  std::atomic<int> heldLocks{0};

  static inline RemoteProvider* s_Current = nullptr;

 private:
  mutable std::mutex m_Lock;
  std::map<std::string, std::vector<std::uint64_t>> m_Hosts;
  std::set<std::string> m_Registered;
};

#endif  // TESTS_OOB_REMOTE_PROVIDER_H_
