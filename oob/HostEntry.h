// The lines of the two host files: parsing them, and the text of an address.
//
// Thread safety: no state; any thread. Texts are the caller's.
#ifndef OOB_HOSTENTRY_H_
#define OOB_HOSTENTRY_H_

#include <array>
#include <memory>
#include <string>
#include <string_view>

#include "rmapi/rmapi.h"

// Two readers of a line of the hosts file. Both work in place and return 1 for a line with a host, else 0; they
// differ in what they take for one.

// The controller's. Leaves the bare host at the start of `line`. `*port` is set only by a port in 1025..65534,
// looked for in the comment too.
int ParseHostEntry(char* line, unsigned short* port);

// The host list's. `*host` points into the line and keeps brackets and port; `*name` points at the first word
// of the comment, or at a fixed text.
int ParseHostEntry(char* line, char** host, const char** name);

// A line of the CIM hosts file into a cleared record; 1 when it describes a host. Cuts the line at its comment.
int ParseCimHostEntry(char* line, CIMCredentials* record);

// Whether the fields of a line without blanks are complete. Sets `*passwordless` to 1 when the fourth is empty,
// which is the only one that may be.
int ValidateCredentialsString(const char* text, int* passwordless);

// The text without blanks and tabs.
std::unique_ptr<char[]> RemoveAllWhiteSpaces(const char* text);

// Scrambles a password, or unscrambles it; writes as many bytes as the text has, and no terminator. Always 0.
int EncryptPwd(const unsigned char* in, unsigned char* out);

// Writes the text of an address, at most 64 bytes; the provider's status.
int FmtIpAddress(const _RM_IP_INFO* address, char* text);

// The text of an address; empty when the provider has none.
class IpText {
 public:
  explicit IpText(const _RM_IP_INFO& address) {
    FmtIpAddress(&address, m_Text.data());
    m_Text.back() = '\0';
  }
  const char* Text() const { return m_Text.data(); }

 private:
  std::array<char, 65> m_Text{};
};

inline bool IsIPv6(const _RM_IP_INFO& address) {
  return (address.flags & RM_IP_FLAG_IPV6) != 0;
}

// ---- What a host looks like in a line; also used for the hosts that an application names ----

inline constexpr char kBlanks[] = " \t";

// The text from its first character that is neither blank nor tab.
std::string_view SkipBlanks(std::string_view text);

// Digits and dots that are no IPv4 address: a slip of the pen, which no resolver needs to see.
bool IsBadAddress(std::string_view host);

// Two or more colons are an IPv6 address, which without brackets has no port.
bool HasTwoColons(std::string_view text);

// What stands between the brackets of a text that begins with one, and what follows them; empty when there is
// no closing bracket.
struct BracketedHost {
  std::string_view host;
  std::string_view rest;
};
BracketedHost SplitBrackets(std::string_view text);

// The pieces between separators, as strtok finds them: empty ones do not count.
class Pieces {
 public:
  Pieces(std::string_view text, const char* separators) : m_Rest(text), m_Separators(separators) {}
  // The next piece; empty when there is none.
  std::string_view Next();
  // All that follows the last piece and its separator.
  std::string_view Rest() const { return m_Rest; }

 private:
  std::string_view m_Rest;
  const char* m_Separators;
};

#endif  // OOB_HOSTENTRY_H_
