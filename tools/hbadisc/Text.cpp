#include "tools/hbadisc/Text.h"

#include <cwchar>

namespace hbadisc {

namespace {

// The C library's character functions know no locale argument; this sets the thread's for a while.
class ThreadLocale {
 public:
  explicit ThreadLocale(locale_t locale) : m_Before(uselocale(locale)) {}
  ThreadLocale(const ThreadLocale&) = delete;
  ThreadLocale& operator=(const ThreadLocale&) = delete;
  ~ThreadLocale() { uselocale(m_Before); }

 private:
  locale_t m_Before;
};

locale_t NewLocale(const char* name) {
  return newlocale(LC_CTYPE_MASK, name, nullptr);
}

locale_t EnvironmentLocale() {
  static const locale_t locale = [] {
    const locale_t fromEnvironment = NewLocale("");
    return fromEnvironment ? fromEnvironment : NewLocale("C");
  }();
  return locale;
}

std::string Escaped(std::string_view bytes) {
  constexpr char kHex[] = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    text += {'\\', 'x', kHex[byte >> 4], kHex[byte & 0xF]};
  }
  return text;
}

}  // namespace

TerminalText ToTerminal(std::string_view text, locale_t locale) {
  const ThreadLocale scope(locale);
  TerminalText result;
  while (!text.empty()) {
    std::mbstate_t state{};
    wchar_t character = 0;
    const std::size_t decoded = std::mbrtowc(&character, text.data(), text.size(), &state);
    // Beyond the size are the two ways to fail; 0 is a NUL.
    const bool valid = decoded > 0 && decoded <= text.size();
    const std::size_t length = valid ? decoded : 1;
    const int width = valid ? wcwidth(character) : 0;
    const std::string_view bytes = text.substr(0, length);
    const std::string shown = width > 0 ? std::string(bytes) : Escaped(bytes);
    result.width += width > 0 ? static_cast<std::size_t>(width) : shown.size();
    result.text += shown;
    text.remove_prefix(length);
  }
  return result;
}

TerminalText ToTerminal(std::string_view text) {
  return ToTerminal(text, EnvironmentLocale());
}

std::string Printable(std::string_view text) {
  return ToTerminal(text).text;
}

}  // namespace hbadisc
