// What list, show, targets and refresh say about the ports that were found, before it is written anywhere.
//
// Thread safety: functions without shared state. Ownership: plain values.
#ifndef TOOLS_HBADISC_ANSWER_H_
#define TOOLS_HBADISC_ANSWER_H_

#include <string>

#include "tools/hbadisc/Options.h"
#include "tools/hbadisc/Output.h"
#include "tools/hbadisc/Picture.h"

namespace hbadisc {

struct Answer {
  ExitCode code = kOk;
  std::string data;     // for standard output; empty when there is none
  std::string message;  // for people, also when all is well ("no ports"); empty when there is nothing to say
};

// `picture` has the details of its ports for show, targets and refresh.
Answer MakeAnswer(const Options& options, const Picture& picture, bool colour);

// The data of a command that could not do its work: in JSON a document that says so, else nothing.
std::string FailureData(const Options& options, const std::string& reason);

// That the time limit of the first cycle, which there has to be, ran out.
std::string TimeLimitText(const Options& options);

}  // namespace hbadisc

#endif  // TOOLS_HBADISC_ANSWER_H_
