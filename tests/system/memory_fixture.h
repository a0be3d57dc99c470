// Discovery running on the provider that allocates nothing, its callbacks counted, and all that it shows.
#ifndef TESTS_SYSTEM_MEMORY_FIXTURE_H_
#define TESTS_SYSTEM_MEMORY_FIXTURE_H_

#include "tests/support/Testing.h"
#include "tests/system/FailingMemory.h"
#include "tests/system/Harness.h"
#include "tests/system/MemoryProvider.h"

namespace systemtest {

constexpr unsigned int kNever = 400'000;  // seconds; a cycle comes when it is asked for
constexpr Milliseconds kPatience{20'000};

class WithoutMemory : public testing::Test {
 protected:
  WithoutMemory() { OursHere(); }
  ~WithoutMemory() override {
    library.Terminate();
    EXPECT_EQ(g_Provider.started, 0);
  }

  void Register() { library.RegisterCallBack(CountCallBack, HBADISC_EVENT_EVERY_CYCLE, &m_CallBacks); }
  unsigned int CallBackCount() const { return m_CallBacks; }
  bool AwaitCallBack(unsigned int before) const {
    return Eventually([&] { return m_CallBacks > before; }, kPatience);
  }
  // Every port with all that can be asked about it.
  std::string Picture() const;

 private:
  static void CountCallBack(unsigned int, void* count) { ++*static_cast<std::atomic<unsigned int>*>(count); }

  struct Files {
    Files() {
      WriteFile("/etc/varnix_disc.conf", "DISCO_SLOW_INTERVAL:60\n");
      WriteFile(Scratch("hbahosts.lst"), std::string(kRemoteHost) + " # remote\n");
    }
  };
  std::atomic<unsigned int> m_CallBacks{0};

 protected:
  // One worker, so that allocations come in the same order each time.
  const Log log{0x3FF, "DISCO_MAX_THREADS:1\nTcpSocketPortNumber:23333\n"};
  const Files files;
  const Library library;
};

inline std::string WithoutMemory::Picture() const {
  std::string picture;
  const auto add = [&](const void* bytes, std::size_t size) {
    picture.append(static_cast<const char*>(bytes), size);
  };
  for (const auto& [name, record] : library.Ports()) {
    add(&record, sizeof record);
    const HBA_NAME port = Name(name);
    RM_NodeInfoEntry targets[4] = {};
    unsigned int count = 4;
    library.GetTargetMappings(port, targets, &count);
    add(targets, sizeof targets);
    discovery_vport_info vports[4] = {};
    count = 4;
    library.GetVPorts(port, vports, &count);
    add(vports, sizeof vports);
    discovery_iscsi_names names;
    library.GetiSCSINames(port, &names);
    add(&names, sizeof names);
  }
  return picture;
}

}  // namespace systemtest

#endif  // TESTS_SYSTEM_MEMORY_FIXTURE_H_
