// The two text files in the install directory that name the remote hosts. The management application and every
// process that uses this library write them, so a change is made under a lock between processes, and a
// rewritten file takes the old one's name in one step: a crash at any moment leaves the old or the new content.
//
// Thread safety: the calls that REQUIRE the file are made between Lock and Unlock, those that EXCLUDE it take
// it themselves. Reading without the lock sees a whole file too, but perhaps a line that is being appended. No
// list lock is held when a file is locked. Ownership: a HostFile owns its handle of the lock between processes;
// the mutex of this process is shared by all of them.
#ifndef OOB_HOSTFILE_H_
#define OOB_HOSTFILE_H_

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "thread/thread_annotations.h"
#include "thread/zyl_thread.h"

// Which of the files.
struct HostFileKind {
  const char* name;
  const char* temporaryName;
  const char* lockName;
  // The host of a line, which the call may change; empty when there is none.
  std::string_view (*hostOf)(char* line);
  // The host stands in its line as it is, so that a line without its text cannot be its line.
  bool hostIsVerbatim;
};

extern const HostFileKind kOobHostsFile;
extern const HostFileKind kCimHostsFile;

// A whole file of the install directory; nothing when it is missing, unreadable or no regular file.
std::optional<std::string> ReadHostFile(const HostFileKind& kind);

// The pieces in which a file is read: lines with their newline, cut where they are longer than a piece.
class HostFilePieces {
 public:
  static constexpr std::size_t kMaxPiece = 1023;

  explicit HostFilePieces(std::string_view content) : m_Rest(content) {}
  // Nothing at the end.
  std::optional<std::string_view> Next();
  // A copy of the piece that a parser may change, good until the next call.
  char* Line(std::string_view piece);

 private:
  std::string_view m_Rest;
  std::array<char, kMaxPiece + 1> m_Line{};
};

class CAPABILITY("file") HostFile {
 public:
  enum class Added { kDone, kDuplicate, kFailed };

  explicit HostFile(const HostFileKind& kind);
  ~HostFile();
  HostFile(const HostFile&) = delete;
  HostFile& operator=(const HostFile&) = delete;

  // Without a working lock between processes there remains the one of this process.
  void Lock() ACQUIRE();
  // Gives up, with false, once `stopped` says so while another thread of this process has the file.
  bool LockUnless(const std::function<bool()>& stopped) TRY_ACQUIRE(true);
  void Unlock() RELEASE();

  // The content, read under the lock; nothing either once `stopped`.
  std::optional<std::string> Read(const std::function<bool()>& stopped) EXCLUDES(this);
  // Whether a line names exactly that host. A last line without newline gets one.
  bool HasHost(std::string_view host) EXCLUDES(this);
  // Appends a line unless one names that host already, in one hold of the lock.
  Added AddLine(std::string_view host, std::string_view line) EXCLUDES(this);
  // Takes out every line of that host and keeps all else byte for byte; true when there was one and it is gone.
  bool RemoveHost(std::string_view host) EXCLUDES(this);

 private:
  bool FindHostAndRepair(std::string_view host) REQUIRES(this);

  const HostFileKind& m_Kind;
  CZylThreadLock& m_ProcessLock;
  void* const m_Handle;  // null: no lock between processes
  bool m_HasHandle GUARDED_BY(m_ProcessLock) = false;
};

#endif  // OOB_HOSTFILE_H_
