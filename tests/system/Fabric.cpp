#include "tests/system/Fabric.h"

#include "rmapi/rmapi.h"

namespace systemtest {

Fabric::Fabric(const std::vector<json>& boards) {
  m_File["local"] = {{"name", "testhost"}, {"boards", boards}};
  Write();
}

json& Fabric::AddRemote(const std::string& address, const std::string& name, const std::vector<json>& boards) {
  json& hosts = m_File["remote"];
  hosts.push_back({{"address", address}, {"name", name}, {"boards", boards}});
  return hosts.back();
}

void Fabric::Write() {
  if (!Local()["boards"].empty()) Board(0)["driver_type"] = ++m_Version;
  WriteFile(m_Path, m_File.dump(2));
}

bool Fabric::Replace(const Library& library) {
  Write();
  const auto driverType = library.Symbol<decltype(&RM_GetDriverType)>("RM_GetDriverType");
  const HBA_NAME first = Name(Board(0)["wwpn"].get<std::string>());
  return Eventually([&] {
    unsigned int type = 0;
    return driverType(nullptr, first.wwn, &type) == RM_STATUS_OK && type == m_Version;
  });
}

}  // namespace systemtest
