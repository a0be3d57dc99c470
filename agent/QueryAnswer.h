// From a question of the wire to a host's answer as a document.
#ifndef AGENT_QUERYANSWER_H_
#define AGENT_QUERYANSWER_H_

#include <string>

#include "provider/host/Host.h"
#include "provider/remote/WireQuery.h"

namespace agent {

// Takes as long as the host takes.
std::string AnswerQuery(provider::Host& host, const provider::WireQuery& query);

// What the agent is and which paths there are.
std::string IndexDocument();

// For requests that are no questions.
std::string ErrorDocument(const std::string& error);

}  // namespace agent

#endif  // AGENT_QUERYANSWER_H_
