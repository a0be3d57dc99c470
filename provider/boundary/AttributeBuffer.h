// The opaque attribute buffers that pass through the boundary.
//
// A header of three words (mark, bytes used, number of values), then for each value its id, type and length and
// the bytes themselves, without any alignment.
#ifndef PROVIDER_BOUNDARY_ATTRIBUTEBUFFER_H_
#define PROVIDER_BOUNDARY_ATTRIBUTEBUFFER_H_

#include <cstddef>

#include "provider/host/Host.h"

namespace provider {

// Bytes that EncodeAttributes writes.
std::size_t EncodedSize(const Attributes& attributes);

// Writes EncodedSize bytes; the caller has checked that there is room.
void EncodeAttributes(const Attributes& attributes, void* buffer);

struct FoundAttribute {
  const void* value = nullptr;
  unsigned int type = 0;
};

// Looks at nothing beyond what the buffer's own header says, and at nothing at all without a good header: a
// buffer that a failed call left zeroed holds no attribute.
FoundAttribute FindAttribute(const void* buffer, unsigned int id);

}  // namespace provider

#endif  // PROVIDER_BOUNDARY_ATTRIBUTEBUFFER_H_
