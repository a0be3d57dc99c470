#include "inband/InitiatorNames.h"

#include <cstring>

#include "rmapi/rmapi.h"

namespace {

constexpr std::size_t kNameBytes = 256;

bool Differs(const char* name, const char* stored) {
  return stored == nullptr || std::strncmp(name, stored, kNameBytes) != 0;
}

}  // namespace

int InitiatorNames::Read(const unsigned char* proxy, const unsigned char* wwn) {
  const int status = RM_iSCSI_GetInitiatorProperties(proxy, wwn, m_InitiatorName, m_DefaultName, m_Alias);
  m_InitiatorName[kNameBytes] = m_DefaultName[kNameBytes] = m_Alias[kNameBytes] = '\0';
  return status;
}

bool InitiatorNames::DifferFrom(const CDiscISCSINames& stored) const {
  return Differs(m_InitiatorName, stored.GetInitiatorName()) ||
         Differs(m_DefaultName, stored.GetDefaultName()) || Differs(m_Alias, stored.GetAlias());
}

void InitiatorNames::StoreIn(CDiscISCSINames* stored) const {
  stored->SetNames(m_InitiatorName, m_DefaultName, m_Alias);
}
