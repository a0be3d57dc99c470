// Records and names that the tests of the data model use.
#ifndef TESTS_MODEL_SAMPLES_H_
#define TESTS_MODEL_SAMPLES_H_

#include <cstdio>
#include <cstring>
#include <string>

#include "rmapi/rmapi.h"

// 10:00:00:00:00:00:hi:lo
inline HBA_NAME Name(unsigned int number) {
  return HBA_NAME{
      {0x10, 0, 0, 0, 0, 0, static_cast<unsigned char>(number >> 8), static_cast<unsigned char>(number)}};
}

inline void SetName(unsigned char (&field)[8], HBA_NAME name) {
  std::memcpy(field, name.wwn, sizeof(field));
}

inline RM_NodeInfoEntry FcTarget(unsigned int number) {
  RM_NodeInfoEntry target{};
  SetName(target.portWwn, Name(number));
  SetName(target.nodeWwn, Name(number + 1));
  std::snprintf(target.osDeviceName, sizeof(target.osDeviceName), "/dev/sd%u", number);
  return target;
}

inline _RM_ISCSI_TARGET ISCSITarget(const std::string& name, unsigned char flags = 0) {
  _RM_ISCSI_TARGET target{};
  std::memcpy(&target, name.data(), name.size());  // long names run on into the second one
  target.flags[0] = flags;
  return target;
}

inline HBA_info_v4 PortInfo(unsigned int number, const char* system = "") {
  HBA_info_v4 info{};
  SetName(info.portWwn, Name(number));
  std::memcpy(info.hostName, system, strnlen(system, sizeof(info.hostName)));
  return info;
}

inline HBA_info_v2 VPortInfo(unsigned int number) {
  HBA_info_v2 info{};
  SetName(info.portWwn, Name(number));
  SetName(info.nodeWwn, Name(number + 1));
  return info;
}

inline bool operator==(HBA_NAME one, HBA_NAME two) {
  return std::memcmp(&one, &two, sizeof(one)) == 0;
}

#endif  // TESTS_MODEL_SAMPLES_H_
