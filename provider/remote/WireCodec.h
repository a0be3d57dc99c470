// An agent's answers as JSON documents, written by the agent and read by RemoteHost.
//
// Every document has "format_version" (1), "path", "status" and "status_text"; with status 0 (or 231) a value
// has "value" and a list "records"; a list whose status is 7 or 191 has "needed", the number of records.
#ifndef PROVIDER_REMOTE_WIRECODEC_H_
#define PROVIDER_REMOTE_WIRECODEC_H_

#include <string>

#include "provider/host/Host.h"
#include "provider/remote/WireValue.h"

namespace provider {

// The longest document, and the most records in one.
inline constexpr std::size_t kMostWireBytes = 8u << 20;
inline constexpr std::size_t kMostWireRecords = 65'536;

// For each type that Host answers with. A document that would be too long tells RM_STATUS_FAILED instead.
template <class Result>
std::string EncodeAnswer(const std::string& path, const Result& answer);

// Throws WireError for what is not such a document; bounded in depth, in the number of values and of records.
template <class Result>
Result DecodeAnswer(const std::string& text);

}  // namespace provider

#endif  // PROVIDER_REMOTE_WIRECODEC_H_
