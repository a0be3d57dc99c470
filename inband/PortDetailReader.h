// What a port tells beyond its record.
//
// Thread safety: functions without shared state; any thread.
#ifndef INBAND_PORTDETAILREADER_H_
#define INBAND_PORTDETAILREADER_H_

#include <memory>

#include "inband/AttributeBuffer.h"
#include "model/PortDetails.h"

// The details in a port's attributes; null when the provider has none.
std::shared_ptr<const PortDetails> ReadPortDetails(const AttributeBuffer& attributes);

// Asks a port of this host, if the provider says that it has details: the others get no call that they did not
// get before. Null when there is no answer.
std::shared_ptr<const PortDetails> ReadLocalPortDetails(const unsigned char* wwn);

#endif  // INBAND_PORTDETAILREADER_H_
