// Attribute buffers and the single values of a port.
#include "provider/Exports.h"

#include "provider/boundary/AttributeBuffer.h"
#include "provider/boundary/Entry.h"

namespace {

using provider::Answer;
using provider::AskHost;
using provider::Attributes;
using provider::Host;
using provider::Wwn;

constexpr std::size_t kIscsiNameField = 256;

// A buffer holds the answer of a port above its operating temperature too.
int Fill(const Answer<Attributes>& answer, void* buffer, unsigned int* size) {
  if (answer.status != RM_STATUS_OK && answer.status != RM_STATUS_OVER_TEMPERATURE) return answer.status;
  const std::size_t needed = provider::EncodedSize(answer.value);
  const bool fits = needed <= *size && needed <= RM_ATTRIBUTE_ROOM;
  *size = static_cast<unsigned int>(needed);
  if (!fits) return RM_STATUS_BUFFER_TOO_SMALL;
  provider::EncodeAttributes(answer.value, buffer);
  return answer.status;
}

int AskAttributes(const unsigned char* proxy, const unsigned char* wwn, void* buffer, unsigned int* size,
                  Answer<Attributes> (Host::*question)(const Wwn&)) {
  if (buffer == nullptr || size == nullptr) return RM_STATUS_FAILED;
  return AskHost(proxy, wwn,
                 [&](Host& host, const Wwn& name) { return Fill((host.*question)(name), buffer, size); });
}

int AskNumber(const unsigned char* proxy, const unsigned char* wwn, unsigned int* number,
              Answer<std::uint32_t> (Host::*question)(const Wwn&)) {
  if (number == nullptr) return RM_STATUS_FAILED;
  return AskHost(proxy, wwn, [&](Host& host, const Wwn& name) {
    const Answer<std::uint32_t> answer = (host.*question)(name);
    if (answer.status == RM_STATUS_OK) *number = answer.value;
    return answer.status;
  });
}

void CopyIscsiName(char* field, const std::string& name) {
  if (field != nullptr) provider::CopyField(field, kIscsiNameField, name);
}

}  // namespace

int RM_GetDiscoveryAttributes(const unsigned char* proxy, const unsigned char* wwn, void* buffer,
                              unsigned int* size) {
  return AskAttributes(proxy, wwn, buffer, size, &Host::DiscoveryAttributes);
}

int RM_GetHBAAttributes(const unsigned char* proxy, const unsigned char* wwn, void* buffer,
                        unsigned int* size) {
  return AskAttributes(proxy, wwn, buffer, size, &Host::HbaAttributes);
}

int RM_GetPortAttributes(const unsigned char* proxy, const unsigned char* wwn, void* buffer,
                         unsigned int* size) {
  return AskAttributes(proxy, wwn, buffer, size, &Host::PortAttributes);
}

int RM_GetServerAttributes(const unsigned char* proxy, const unsigned char* wwn, void* buffer,
                           unsigned int* size) {
  return AskAttributes(proxy, wwn, buffer, size, &Host::ServerAttributes);
}

const void* RM_GetAttributeValue(const void* buffer, unsigned int id, unsigned int* type, int* status) {
  const provider::FoundAttribute found =
      buffer == nullptr ? provider::FoundAttribute{} : provider::FindAttribute(buffer, id);
  if (type != nullptr) *type = found.type;
  if (status != nullptr) *status = found.value == nullptr ? RM_STATUS_NOT_FOUND : RM_STATUS_OK;
  return found.value;
}

int RM_GetDriverType(const unsigned char* proxy, const unsigned char* wwn, unsigned int* type) {
  return AskNumber(proxy, wwn, type, &Host::DriverType);
}

// Whatever is queried, the answer is the bind type in force.
int RM_GetBindingSupport(const unsigned char* proxy, const unsigned char* wwn, int /*query*/,
                         unsigned int* bindType) {
  return AskNumber(proxy, wwn, bindType, &Host::BindType);
}

int RM_iSCSI_GetInitiatorProperties(const unsigned char* proxy, const unsigned char* wwn, char* initiatorName,
                                    char* defaultName, char* alias) {
  return AskHost(proxy, wwn, [&](Host& host, const Wwn& name) {
    const Answer<provider::IscsiNames> answer = host.InitiatorProperties(name);
    if (answer.status == RM_STATUS_OK) {
      CopyIscsiName(initiatorName, answer.value.initiatorName);
      CopyIscsiName(defaultName, answer.value.defaultName);
      CopyIscsiName(alias, answer.value.alias);
    }
    return answer.status;
  });
}
