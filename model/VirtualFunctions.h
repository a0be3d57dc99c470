// The SR-IOV virtual functions of a port, by address.
//
// Thread safety: values; one thread at a time per object, the caller locks. Copies of a list are independent.
//
// Ownership: a list owns its entries, copies of a list share them.
#ifndef MODEL_VIRTUALFUNCTIONS_H_
#define MODEL_VIRTUALFUNCTIONS_H_

#include <cstring>

#include "model/SharedSet.h"
#include "rmapi/rmapi.h"

class CVFEntry {
 public:
  CVFEntry() = default;
  explicit CVFEntry(HBA_NAME address) : m_Address(address) {}
  CVFEntry(const CVFEntry& other) = default;
  CVFEntry& operator=(const CVFEntry& other) = default;
  virtual ~CVFEntry() = default;

  void CopyEntry(const CVFEntry& other) { *this = other; }
  HBA_NAME GetAddress() const { return m_Address; }

  bool operator<(const CVFEntry& other) const { return CompareOrder(other) < 0; }
  bool operator==(const CVFEntry* other) const { return other != nullptr && CompareOrder(*other) == 0; }

  int CompareOrder(const CVFEntry& other) const { return CompareKey(other.m_Address); }
  int CompareKey(HBA_NAME address) const { return std::memcmp(&m_Address, &address, sizeof(m_Address)); }

 private:
  HBA_NAME m_Address{};
};

// FindEntry takes an HBA_NAME.
class CVFList : public SharedSet<CVFEntry, HBA_NAME> {};

#endif  // MODEL_VIRTUALFUNCTIONS_H_
