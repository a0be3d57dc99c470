// What the agent answers to one HTTP request.
#ifndef AGENT_REQUESTHANDLER_H_
#define AGENT_REQUESTHANDLER_H_

#include <microhttpd.h>

#include <chrono>
#include <cstddef>

#include "agent/ConnectionTable.h"
#include "agent/ServedHosts.h"

namespace agent {

// What the requests of a server have in common.
struct RequestContext {
  const ServedHosts& hosts;
  ConnectionTable& connections;  // is told how long the connection may take for what comes next
  std::chrono::seconds requestLimit;
  std::chrono::seconds answerLimit;
};

// libmicrohttpd's handler; `context` is a RequestContext. GET and HEAD without a body and not by a name of the
// domain name system, else an error document, after which the connection is closed.
MHD_Result HandleRequest(void* context, MHD_Connection* connection, const char* url, const char* method,
                         const char* version, const char* upload, std::size_t* uploadSize, void** ofRequest);

// What libmicrohttpd calls when the answer has been taken.
void EndRequest(void* context, MHD_Connection* connection, void** ofRequest, MHD_RequestTerminationCode code);

}  // namespace agent

#endif  // AGENT_REQUESTHANDLER_H_
