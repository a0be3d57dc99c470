// The discovery log: one line per event, chosen by a bit mask in the settings file.
//
// Thread safety: every function may be called from any thread at any time, also while the library is being
// loaded.
#ifndef LOG_DISCOVERYLOG_H_
#define LOG_DISCOVERYLOG_H_

// Mask bits. A line is written when its mask shares a bit with the log mode.
enum DiscoLogMask : unsigned int {
  kLogLocalPorts = 0x001,   // local port enumeration, and errors of the local gatherers
  kLogInBand = 0x002,       // in-band controller and cycle
  kLogSlow = 0x004,         // slow discovery
  kLogOob = 0x010,          // out-of-band discovery, interval changes
  kLogDetails = 0x020,      // target and virtual-port details
  kLogOobCycle = 0x040,     // out-of-band cycle details
  kLogOobAdd = 0x080,       // out-of-band host additions
  kLogRemoteAttr = 0x100,   // remote port attribute reads
  kLogCycleBounds = 0x200,  // cycle boundaries and forced cycles
  kLogStartStop = 0x0F7,    // start-up and termination
};

// Writes "HH:MM:SS: [ HBA ww:..:ww -  ]message\n" as one write. `wwn` is null or 8 bytes. At most 510
// characters and a line feed; a message that ends in a line feed gets no second one. Control bytes of the
// arguments become question marks; line feeds of `format` itself stay.
void disco_printf(unsigned int mask, const unsigned char* wwn, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// The local time as "%H:%M:%S" and the date as "%m/%d/%y", "" on failure; good until the same thread's next
// call.
const char* disco_timestr();
const char* disco_datestr();

// Sets which lines are written; 0 (as at load) writes none.
void SetDiscoveryLogMode(unsigned int mode);

// Opens the log for appending and writes the banner; nothing when it is open, the mode is 0 or the path is
// empty.
void OpenDiscoveryLog(const char* path);

// Also tells lines to `function`, without time and line feed, whatever the mode and the file: those whose mask
// shares a bit with `mask`. Null or 0: none. May throw std::bad_alloc, and then changes nothing.
using DiscoveryLogListener = void (*)(unsigned int mask, const char* line, void* context);
void SetDiscoveryLogListener(DiscoveryLogListener function, unsigned int mask, void* context);

#endif  // LOG_DISCOVERYLOG_H_
