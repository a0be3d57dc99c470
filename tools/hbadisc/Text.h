// Texts of unknown origin, made fit for a terminal.
//
// Thread safety: functions without shared state.
#ifndef TOOLS_HBADISC_TEXT_H_
#define TOOLS_HBADISC_TEXT_H_

#include <locale.h>

#include <string>
#include <string_view>

namespace hbadisc {

struct TerminalText {
  std::string text;
  std::size_t width = 0;  // columns it takes
};

// The text in the character set of `locale`, with every byte of what is not a printable character there
// (controls, broken sequences, characters without a width of their own) written as "\x1b".
TerminalText ToTerminal(std::string_view text, locale_t locale);

// As above, in the character set that the environment names.
TerminalText ToTerminal(std::string_view text);

// The same without the width, for messages.
std::string Printable(std::string_view text);

}  // namespace hbadisc

#endif  // TOOLS_HBADISC_TEXT_H_
