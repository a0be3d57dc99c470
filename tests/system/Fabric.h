// A fabric file of a test's own, changed while the library runs.
#ifndef TESTS_SYSTEM_FABRIC_H_
#define TESTS_SYSTEM_FABRIC_H_

#include <nlohmann/json.hpp>

#include "tests/support/Boards.h"
#include "tests/support/Testing.h"
#include "tests/system/Harness.h"

namespace systemtest {

class Fabric {
 public:
  // Written at once.
  explicit Fabric(const std::vector<json>& boards);

  json& Local() { return m_File["local"]; }
  // A remote host at its address, which an agent serves.
  json& AddRemote(const std::string& address, const std::string& name, const std::vector<json>& boards);
  json& Remote(std::size_t index) { return m_File["remote"][index]; }
  json& Board(std::size_t index) { return Local()["boards"][index]; }
  void AddFault(const json& fault) { Local()["faults"].push_back(fault); }
  void Write();
  const std::string& Path() const { return m_Path; }

  // Writes the file and waits until the provider answers from it. Needs a first board that is there.
  bool Replace(const Library& library);

 private:
  const std::string m_Path = Scratch("fabric.json");
  json m_File;
  unsigned int m_Version = 100;  // of the file, told as the first board's driver type, which nothing shows
};

}  // namespace systemtest

#endif  // TESTS_SYSTEM_FABRIC_H_
