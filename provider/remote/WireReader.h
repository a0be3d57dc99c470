// Takes an agent's document apart without ever holding a tree of the whole.
//
// Whatever a document holds, the time it takes follows its length, and so does the memory: a record is built,
// handed on and forgotten before the next one, and what nobody asks for is passed over without being built.
#ifndef PROVIDER_REMOTE_WIREREADER_H_
#define PROVIDER_REMOTE_WIREREADER_H_

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

#include "provider/remote/WireValue.h"

namespace provider {

struct WireDocument {
  WireJson members = WireJson::object();   // those that are read, as far as they are there, without "records"
  std::optional<std::size_t> recordCount;  // nothing when there is no array of records
};

// Looks at the whole document. Throws WireError for what is no JSON object, is nested too deeply, has a member
// twice that is read, or a member of too many values.
WireDocument ReadDocument(const std::string& text);

// Hands each element of the array of records to `take`, in their order. Throws WireError as above, and whatever
// `take` throws.
void ReadRecords(const std::string& text, const std::function<void(const WireJson&)>& take);

}  // namespace provider

#endif  // PROVIDER_REMOTE_WIREREADER_H_
