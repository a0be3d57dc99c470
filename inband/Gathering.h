// What the functions that read below a port share.
#ifndef INBAND_GATHERING_H_
#define INBAND_GATHERING_H_

#include <cstdint>

#include "inband/StopQuery.h"
#include "log/DiscoveryLog.h"
#include "rmapi/rmapi.h"

// A port in use has not answered: what is known of it stays. Every other failure is an answer.
inline bool IsAnswer(int status) {
  return status != RM_STATUS_LOCKED && status != RM_STATUS_TRY_AGAIN;
}

// Ports of remote hosts are read with few words; their cycle has masks of its own.
struct GatherMasks {
  explicit GatherMasks(bool verbose)
      : info(verbose ? kLogInBand : kLogOob), error(verbose ? kLogLocalPorts : kLogDetails) {}
  unsigned int info;
  unsigned int error;
};

// A world-wide name as "xx:xx:xx:xx:xx:xx:xx:xx".
class WwnText {
 public:
  // By hand: one is made per target, whether or not the line is written.
  explicit WwnText(const std::uint8_t* wwn) {
    constexpr char kDigits[] = "0123456789abcdef";
    char* at = m_Text;
    for (int i = 0; i < 8; ++i) {
      *at++ = kDigits[wwn[i] >> 4];
      *at++ = kDigits[wwn[i] & 0xF];
      *at++ = i < 7 ? ':' : '\0';
    }
  }
  const char* Text() const { return m_Text; }

 private:
  char m_Text[24];
};

#endif  // INBAND_GATHERING_H_
