// A record as it should be, put together from its offsets.
#ifndef TESTS_SUPPORT_RECORDBYTES_H_
#define TESTS_SUPPORT_RECORDBYTES_H_

#include "tests/support/Testing.h"

class RecordBytes {
 public:
  explicit RecordBytes(std::size_t size) : m_Bytes(size, 0) {}

  RecordBytes& Text(std::size_t offset, const std::string& text) {
    return Put(offset, text.data(), text.size());
  }
  RecordBytes& U8(std::size_t offset, std::uint8_t value) { return Put(offset, &value, sizeof(value)); }
  RecordBytes& U16(std::size_t offset, std::uint16_t value) { return Put(offset, &value, sizeof(value)); }
  RecordBytes& U32(std::size_t offset, std::uint32_t value) { return Put(offset, &value, sizeof(value)); }
  RecordBytes& U64(std::size_t offset, std::uint64_t value) { return Put(offset, &value, sizeof(value)); }
  // DIGITS: 16, hexadecimal.
  RecordBytes& Wwn(std::size_t offset, const std::string& digits) {
    const std::uint64_t name = __builtin_bswap64(std::stoull(digits, nullptr, 16));
    return Put(offset, &name, sizeof(name));
  }
  const std::vector<unsigned char>& Get() const { return m_Bytes; }

 private:
  RecordBytes& Put(std::size_t offset, const void* bytes, std::size_t size) {
    if (offset + size > m_Bytes.size()) throw std::out_of_range("behind the record's end");
    std::memcpy(&m_Bytes[offset], bytes, size);
    return *this;
  }

  std::vector<unsigned char> m_Bytes;
};

template <class Record>
std::vector<unsigned char> BytesOf(const Record& record) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(&record);
  return {bytes, bytes + sizeof(record)};
}

#endif  // TESTS_SUPPORT_RECORDBYTES_H_
