// What kind of port a record describes, and the words for it in the log.
#ifndef INBAND_PORTKIND_H_
#define INBAND_PORTKIND_H_

#include "rmapi/rmapi.h"

inline bool IsISCSIPort(unsigned int features) {
  return (features & RM_FEATURE_ISCSI) != 0;
}
inline bool IsNICPort(unsigned int features) {
  return (features & RM_FEATURE_NIC) != 0;
}
inline bool IsTargetModePort(const HBA_info_v4& info) {
  return (info.modelId & RM_MODEL_TARGET_MODE) != 0;
}

// A RoCE port is a NIC too, so the order matters.
inline const char* PortTypeWord(unsigned int features) {
  if ((features & RM_FEATURE_ISCSI) != 0) return "iSCSI";
  if ((features & RM_FEATURE_FCOE) != 0) return "FCoE";
  if ((features & RM_FEATURE_ROCE) != 0) return "NIC+RoCE";
  if ((features & RM_FEATURE_NIC) != 0) return "NIC";
  return "FC";
}

// To be printed with "%.8s": the text may fill its field.
inline const char* VPDPortNumberText(const HBA_info_v4& info) {
  return info.vpdPortNumber[0] != '\0' ? info.vpdPortNumber : "n/a";
}

#endif  // INBAND_PORTKIND_H_
