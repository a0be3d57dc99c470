// The port names of one remote host, as the provider lists them.
//
// Thread safety: one thread at a time per object. Ownership: owns its block.
#ifndef OOB_NODEADDRESSES_H_
#define OOB_NODEADDRESSES_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "rmapi/rmapi.h"

class NodeAddresses {
 public:
  static constexpr std::uint32_t kFirstRoom = 256;

  // Forgets an earlier host's answer; the room stays. False when there is no memory.
  bool Begin();
  // Asks for the names, with more room as long as the provider wants it and `goOn` says so: a status, or
  // nothing when there is no memory for WantedRoom() names.
  std::optional<int> Ask(const _RM_IP_INFO& host, const std::function<bool()>& goOn);

  std::uint32_t WantedRoom() const { return m_Room; }
  std::uint32_t Count() const { return m_Count; }
  const HBA_NAME& operator[](std::uint32_t index) const;

 private:
  struct Free {
    void operator()(RM_NodeAddrList* block) const;
  };

  bool Allocate(std::uint32_t room);

  std::unique_ptr<RM_NodeAddrList, Free> m_Block;
  std::uint32_t m_Room = 0;
  std::uint32_t m_Count = 0;
  int m_Growths = 0;  // since Begin
};

#endif  // OOB_NODEADDRESSES_H_
