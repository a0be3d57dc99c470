// Where the tool writes: data to standard output, words for people to standard error.
//
// Thread safety: one thread at a time.
#ifndef TOOLS_HBADISC_OUTPUT_H_
#define TOOLS_HBADISC_OUTPUT_H_

#include <stdexcept>
#include <string>
#include <string_view>

namespace hbadisc {

enum ExitCode { kOk = 0, kFailed = 1, kUsage = 2, kPartial = 3, kNotFound = 4 };

// Why a command cannot do what it was asked; ends the program with `code`.
class Failure : public std::runtime_error {
 public:
  Failure(ExitCode code, const std::string& text) : std::runtime_error(text), m_Code(code) {}
  ExitCode Code() const { return m_Code; }

 private:
  ExitCode m_Code;
};

// Standard output could not be written. Empty when nobody should hear of it: the reader went away.
class OutputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Output {
 public:
  explicit Output(int descriptor);
  virtual ~Output() = default;

  // All of the text at once; throws OutputError. A signal that asks the program to stop ends a write that waits
  // for its reader.
  virtual void Write(std::string_view text);

  // False once nothing can be written any more, as when the reader of a pipe has gone away.
  virtual bool HasReader() const;

  bool Colour() const { return m_Colour; }
  int Descriptor() const { return m_Descriptor; }

 private:
  int m_Descriptor;
  bool m_Colour;
};

class Messages {
 public:
  explicit Messages(int descriptor);

  void SetVerbose(bool verbose) { m_Verbose = verbose; }

  // An error or a warning, of one or several lines.
  void Say(std::string_view text);
  // Only with --verbose.
  void Detail(std::string_view text);
  // One line that the next message wipes away; only on a terminal, and not among the lines of --verbose.
  void Progress(std::string_view text);
  bool ShowsProgress() const { return m_ShowsProgress && !m_Verbose; }
  void ClearProgress();

 private:
  void Write(std::string_view text);

  int m_Descriptor;
  bool m_ShowsProgress;
  bool m_Verbose = false;
  bool m_ProgressVisible = false;
};

// Whether a descriptor was given to this program by who started it. One that was closed may meanwhile be some
// file of a library, which must not be written into.
bool IsInherited(int descriptor);

// Keeps standard output for data alone: the result is the descriptor to write data to, and what the libraries
// print (some words already when they are loaded, still in the buffers of stdio) goes to standard error from
// now on.
int ClaimStandardOutput();

}  // namespace hbadisc

#endif  // TOOLS_HBADISC_OUTPUT_H_
