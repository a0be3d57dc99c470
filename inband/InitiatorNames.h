// The three iSCSI names of a port as the provider gives them.
//
// Thread safety: one thread at a time per object.
#ifndef INBAND_INITIATORNAMES_H_
#define INBAND_INITIATORNAMES_H_

#include "model/ISCSINames.h"

class InitiatorNames {
 public:
  // Asks the provider; a status. `proxy` may be null.
  int Read(const unsigned char* proxy, const unsigned char* wwn);

  const char* GetInitiatorName() const { return m_InitiatorName; }

  bool DifferFrom(const CDiscISCSINames& stored) const;
  void StoreIn(CDiscISCSINames* stored) const;

 private:
  // A name may fill its 256 bytes; the byte behind stays 0.
  using Name = char[257];

  Name m_InitiatorName = {};
  Name m_DefaultName = {};
  Name m_Alias = {};
};

#endif  // INBAND_INITIATORNAMES_H_
