#include "provider/boundary/AttributeBuffer.h"

#include <cstring>
#include <utility>

namespace provider {

namespace {

constexpr std::uint32_t kMark = 0x31425441;

struct Header {
  std::uint32_t mark;
  std::uint32_t used;
  std::uint32_t count;
};

// Nine bytes in the buffer, without padding, so that hardly any value is aligned.
struct ValueHeader {
  std::uint32_t id;
  std::uint8_t type;
  std::uint32_t length;

  static constexpr std::size_t kBytes = sizeof(id) + sizeof(type) + sizeof(length);
};

// A value as its type and bytes. Texts keep their NUL.
struct Encoded {
  unsigned int type;
  const void* bytes;
  std::size_t length;
};

Encoded Encode(const AttributeValue& value) {
  if (const auto* text = std::get_if<std::string>(&value))
    return {RM_ATTRIBUTE_TEXT, text->c_str(), text->size() + 1};
  if (const auto* number = std::get_if<std::uint32_t>(&value))
    return {RM_ATTRIBUTE_U32, number, sizeof(*number)};
  const Wwn& name = std::get<Wwn>(value);
  return {RM_ATTRIBUTE_NAME, name.data(), name.size()};
}

void Put(unsigned char*& at, const void* bytes, std::size_t length) {
  std::memcpy(at, bytes, length);
  at += length;
}

void PutValue(unsigned char*& at, unsigned int id, const Encoded& value) {
  const std::uint32_t id32 = id;
  const auto type = static_cast<std::uint8_t>(value.type);
  const auto length = static_cast<std::uint32_t>(value.length);
  Put(at, &id32, sizeof(id32));
  Put(at, &type, sizeof(type));
  Put(at, &length, sizeof(length));
  Put(at, value.bytes, value.length);
}

ValueHeader TakeValueHeader(const unsigned char* at) {
  ValueHeader value{};
  std::memcpy(&value.id, at, sizeof(value.id));
  std::memcpy(&value.type, at + sizeof(value.id), sizeof(value.type));
  std::memcpy(&value.length, at + sizeof(value.id) + sizeof(value.type), sizeof(value.length));
  return value;
}

bool IsWhole(const ValueHeader& value, const unsigned char* bytes) {
  switch (value.type) {
    case RM_ATTRIBUTE_TEXT:
      return value.length > 0 && bytes[value.length - 1] == 0;
    case RM_ATTRIBUTE_U32:
      return value.length == sizeof(std::uint32_t);
    case RM_ATTRIBUTE_NAME:
      return value.length == sizeof(Wwn);
    default:
      return false;
  }
}

}  // namespace

std::size_t EncodedSize(const Attributes& attributes) {
  std::size_t size = sizeof(Header);
  for (const auto& [id, value] : attributes) size += ValueHeader::kBytes + Encode(value).length;
  return size;
}

void EncodeAttributes(const Attributes& attributes, void* buffer) {
  const Header header{kMark, static_cast<std::uint32_t>(EncodedSize(attributes)),
                      static_cast<std::uint32_t>(attributes.size())};
  auto* at = static_cast<unsigned char*>(buffer);
  Put(at, &header, sizeof(header));
  for (const auto& [id, value] : attributes) PutValue(at, id, Encode(value));
}

FoundAttribute FindAttribute(const void* buffer, unsigned int id) {
  Header header{};
  std::memcpy(&header, buffer, sizeof(header));
  if (header.mark != kMark || header.used < sizeof(header) || header.used > RM_ATTRIBUTE_ROOM) return {};
  const auto* at = static_cast<const unsigned char*>(buffer) + sizeof(header);
  std::size_t left = header.used - sizeof(header);
  for (std::uint32_t i = 0; i < header.count && left >= ValueHeader::kBytes; ++i) {
    const ValueHeader value = TakeValueHeader(at);
    at += ValueHeader::kBytes;
    left -= ValueHeader::kBytes;
    if (value.length > left) return {};
    if (value.id == id) return IsWhole(value, at) ? FoundAttribute{at, value.type} : FoundAttribute{};
    at += value.length;
    left -= value.length;
  }
  return {};
}

}  // namespace provider
