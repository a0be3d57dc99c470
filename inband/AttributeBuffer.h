// The answer to one attribute call of the provider.
//
// Thread safety: one thread at a time. Ownership: values live as long as the buffer.
#ifndef INBAND_ATTRIBUTEBUFFER_H_
#define INBAND_ATTRIBUTEBUFFER_H_

#include <array>
#include <cstdint>
#include <cstring>
#include <optional>

#include "rmapi/rmapi.h"

// A look-up writes 0 into *status when the attribute is there, else why not.
class AttributeBuffer {
 public:
  using Call = int (*)(const unsigned char*, const unsigned char*, void*, unsigned int*);

  int Fill(Call call, const unsigned char* proxy, const unsigned char* wwn) {
    m_Bytes.fill(0);
    unsigned int size = static_cast<unsigned int>(m_Bytes.size());
    const int status = call(proxy, wwn, m_Bytes.data(), &size);
    const bool answered = status == RM_STATUS_OK || status == RM_STATUS_OVER_TEMPERATURE;
    return answered && size > m_Bytes.size() ? RM_STATUS_BUFFER_TOO_SMALL : status;
  }

  const char* Text(unsigned int id, int* status) const {
    return static_cast<const char*>(Find(
        id, [](unsigned int type) { return type == RM_ATTRIBUTE_TEXT; }, status));
  }

  // Null, or the 8 bytes of a value that is a name.
  const unsigned char* Name(unsigned int id, int* status) const {
    return static_cast<const unsigned char*>(Find(
        id, [](unsigned int type) { return type == RM_ATTRIBUTE_NAME; }, status));
  }

  // Null, or the at least 4 bytes of a value that is no text.
  const unsigned char* Bytes(unsigned int id, int* status) const {
    return static_cast<const unsigned char*>(Find(
        id, [](unsigned int type) { return type != RM_ATTRIBUTE_TEXT; }, status));
  }

  std::optional<std::uint32_t> Number(unsigned int id, int* status) const {
    const unsigned char* value = Bytes(id, status);
    if (value == nullptr) return std::nullopt;
    std::uint32_t number = 0;
    std::memcpy(&number, value, sizeof(number));
    return number;
  }

 private:
  using IsWanted = bool (*)(unsigned int type);

  const void* Find(unsigned int id, IsWanted isWanted, int* status) const {
    unsigned int type = 0;
    *status = RM_STATUS_OK;
    const void* value = RM_GetAttributeValue(m_Bytes.data(), id, &type, status);
    if (*status != RM_STATUS_OK) return nullptr;
    if (value == nullptr) {
      *status = RM_STATUS_FAILED;
    } else if (!isWanted(type)) {
      // A value of another type must not be read as what was asked for.
      *status = RM_STATUS_NOT_FOUND;
    }
    return *status == RM_STATUS_OK ? value : nullptr;
  }

  std::array<unsigned char, RM_ATTRIBUTE_ROOM> m_Bytes{};
};

#endif  // INBAND_ATTRIBUTEBUFFER_H_
