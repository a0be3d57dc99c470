// The CIM hosts this process has been told of, by host address.
//
// Thread safety: locked inside, usable before main and after exit has begun.
#ifndef PROVIDER_PROCESS_CIMTABLE_H_
#define PROVIDER_PROCESS_CIMTABLE_H_

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "provider/base/Mutex.h"
#include "rmapi/rmapi.h"

namespace provider {

class CimTable {
 public:
  // The process's table; never destroyed.
  static CimTable& Get();

  // The address field as a text; it may fill its field.
  static std::string AddressOf(const CIMCredentials& entry);

  std::optional<CIMCredentials> Find(const std::string& address);
  // A status: failed when that address is stored already, or the table is full.
  int Add(const CIMCredentials& entry);
  // A status: not found when that address is not stored.
  int Update(const CIMCredentials& entry);
  void Clear();
  std::vector<CIMCredentials> Entries();

 private:
  Mutex m_Mutex;
  std::map<std::string, CIMCredentials> m_Entries GUARDED_BY(m_Mutex);
};

}  // namespace provider

#endif  // PROVIDER_PROCESS_CIMTABLE_H_
