// What a request's headers say that matters to an agent, which knows no bodies and no names of its own.
#ifndef AGENT_REQUESTHEADERS_H_
#define AGENT_REQUESTHEADERS_H_

#include <microhttpd.h>

#include <string_view>

namespace agent {

struct RequestHeaders {
  // False when another server, before this one, could see the request's end elsewhere, or another host.
  bool areSound = true;
  bool haveBody = false;
  bool areByAddress = true;  // see IsByAddress
};

RequestHeaders ReadHeaders(MHD_Connection* connection);

// Whether the value of the header Host is a numeric address or localhost, with or without a port: whether the
// client has come here by an address. A web page can give its own name this machine's address, and so have a
// browser ask and hand it the answer; it cannot have the browser say any other host than that name.
bool IsByAddress(std::string_view host);

}  // namespace agent

#endif  // AGENT_REQUESTHEADERS_H_
