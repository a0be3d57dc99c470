// Statuses and states in words.
//
// Thread safety: functions without shared state. Texts live as long as the process.
#ifndef DISCOVERY_STATUSTEXTS_H_
#define DISCOVERY_STATUSTEXTS_H_

const char* LinkText(unsigned int linkStatus);
const char* StatusText(int status);
const char* HostStateText(unsigned int state);

#endif  // DISCOVERY_STATUSTEXTS_H_
