// What the agent answers to one HTTP request.
#ifndef AGENT_REQUESTHANDLER_H_
#define AGENT_REQUESTHANDLER_H_

#include <microhttpd.h>

#include <cstddef>

namespace agent {

// libmicrohttpd's handler; `hosts` is a ServedHosts. GET and HEAD without a body, else an error document.
MHD_Result HandleRequest(void* hosts, MHD_Connection* connection, const char* url, const char* method,
                         const char* version, const char* upload, std::size_t* uploadSize, void** ofRequest);

}  // namespace agent

#endif  // AGENT_REQUESTHANDLER_H_
