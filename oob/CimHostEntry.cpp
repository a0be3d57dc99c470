// Lines of the CIM hosts file.

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "oob/HostEntry.h"

namespace {

constexpr std::size_t kShortestLine = 7;  // counts the newline
constexpr std::uint32_t kDefaultPort = 5988;
constexpr unsigned char kPasswordMask = 0x5C;
constexpr int kFieldCount = 6;
constexpr int kFieldBeforeTheEmptyOne = 3;
constexpr char kFieldEnd[] = ",";

// Fields are zero before; at most 63 characters are kept.
template <std::size_t size>
void Store(char (&field)[size], std::string_view text) {
  const std::string_view kept = text.substr(0, size - 1);
  std::copy(kept.begin(), kept.end(), field);
}

// By length: a masked character may be 0.
void StorePassword(CIMCredentials* record, std::string_view password) {
  Store(record->password, password);
  const std::size_t kept = std::min(password.size(), sizeof(record->password) - 1);
  unsigned char scrambled[sizeof(record->password)] = {};
  EncryptPwd(reinterpret_cast<const unsigned char*>(record->password), scrambled);
  std::memcpy(record->password, scrambled, kept);
}

// The third credential ends the fields that have a separator of their own: the rest is the password, commas and
// all.
void FillRecord(CIMCredentials* record, std::string_view line, bool passwordless) {
  Pieces fields(line, kFieldEnd);
  Store(record->hostAddress, fields.Next());
  if (const std::string_view port = fields.Next(); !port.empty()) {
    record->port = static_cast<std::uint32_t>(std::strtol(std::string(port).c_str(), nullptr, 0));
  }
  Store(record->credential1, fields.Next());
  Store(record->credential2, fields.Next());
  Store(record->credential3, fields.Next());
  if (!passwordless) StorePassword(record, fields.Rest());
}

}  // namespace

int ValidateCredentialsString(const char* text, int* passwordless) {
  const std::string_view all(text);
  std::size_t cursor = 0;
  for (int count = 0; count <= kFieldCount;) {
    const std::string_view field = Pieces(all.substr(cursor), kFieldEnd).Next();
    if (field.empty()) return 1;
    ++count;
    cursor += field.size();
    const std::string_view rest = all.substr(cursor);
    if (rest.starts_with(",,")) {
      if (count != kFieldBeforeTheEmptyOne) return 0;
      *passwordless = 1;
    } else if (rest.starts_with(',')) {
      ++cursor;
    }
  }
  return 1;
}

std::unique_ptr<char[]> RemoveAllWhiteSpaces(const char* text) {
  const std::string_view all(text);
  auto copy = std::make_unique<char[]>(all.size() + 1);
  std::copy_if(all.begin(), all.end(), copy.get(), [](char c) { return c != ' ' && c != '\t'; });
  return copy;
}

int EncryptPwd(const unsigned char* in, unsigned char* out) {
  for (; *in != '\0'; ++in, ++out) *out = *in ^ kPasswordMask;
  return 0;
}

int ParseCimHostEntry(char* line, CIMCredentials* record) {
  if (line == nullptr || record == nullptr) return 0;
  *record = CIMCredentials{};
  std::string_view text(line);
  if (text.size() < kShortestLine) return 0;
  if (text.ends_with('\n')) text.remove_suffix(1);
  text = text.substr(0, text.find('#'));
  line[text.size()] = '\0';

  const std::unique_ptr<char[]> compact = RemoveAllWhiteSpaces(line);
  int passwordless = 0;
  // Blanks and separators alone are no host either.
  if (Pieces(compact.get(), kFieldEnd).Next().empty()) return 0;
  if (ValidateCredentialsString(compact.get(), &passwordless) == 0) return 0;
  record->port = kDefaultPort;
  FillRecord(record, compact.get(), passwordless != 0);
  return 1;
}
