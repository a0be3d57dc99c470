// The command that looks again and again and tells what has changed.
//
// Thread safety: one thread a process, which the library has one controller for. Ownership: an EventWriter
// keeps no event; the output has to outlive it.
#ifndef TOOLS_HBADISC_WATCH_H_
#define TOOLS_HBADISC_WATCH_H_

#include <string>

#include "tools/hbadisc/Event.h"
#include "tools/hbadisc/Options.h"
#include "tools/hbadisc/Output.h"

namespace hbadisc {

// Runs until the user stops it, the number of lines is reached, or nobody reads the output any more. The result
// is the exit code; throws as RunCommand.
int RunWatch(const Options& options, Output& output, Messages& messages);

// Writes events one by one as they come, in JSON as one document that is closed at the end.
class EventWriter {
 public:
  EventWriter(Format format, Output& output) : m_Format(format), m_Output(output) {}

  void Write(const Event& event);
  // `error`: why the events are not all there; null when they are.
  void Close(bool complete, const Json& error);

 private:
  Format m_Format;
  Output& m_Output;
  bool m_Open = false;
};

}  // namespace hbadisc

#endif  // TOOLS_HBADISC_WATCH_H_
