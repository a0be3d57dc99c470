#include "oob/HostFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>

#include "config/FileDescriptor.h"
#include "oob/HostEntry.h"
#include "rmapi/rmapi.h"

namespace {

// Writers of one process, whatever object they use.
constinit CZylThreadLock gs_OobFileLock;
constinit CZylThreadLock gs_CimFileLock;

std::string_view OobHostOf(char* line) {
  unsigned short port = 0;
  return ParseHostEntry(line, &port) != 0 ? std::string_view(line) : std::string_view();
}

// The line is longer than any address that is kept, so the record's text fits into it.
std::string_view CimHostOf(char* line) {
  CIMCredentials record{};
  if (ParseCimHostEntry(line, &record) == 0) return {};
  const std::size_t length = strnlen(record.hostAddress, sizeof(record.hostAddress));
  std::copy_n(record.hostAddress, length, line);
  return {line, length};
}

// What it is; nothing unless it is a regular file.
std::optional<struct stat> RegularStatus(const Descriptor& file) {
  struct stat status {};
  if (!file.IsOpen() || fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
  return status;
}

// Never waits for the other end of a pipe that stands in the place of a file.
constexpr int kOpenFlags = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
constexpr mode_t kMode = 0666;
constexpr unsigned int kLockPoll = 20000;  // microseconds

// The install directory with its trailing separator.
std::optional<std::string> InstallDirectory() {
  std::array<char, 257> directory{};
  if (RM_GetAppInstallDirA(directory.data(), static_cast<unsigned int>(directory.size() - 1)) != RM_STATUS_OK) {
    return {};
  }
  directory.back() = '\0';
  return std::string(directory.data());
}

std::optional<std::string> ReadAll(const Descriptor& file, std::size_t expected) {
  std::string content(expected, '\0');
  std::size_t used = 0;
  for (;;) {
    if (used == content.size()) content.resize(used + 4096);
    const ssize_t got = read(file.Get(), content.data() + used, content.size() - used);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return {};
    if (got == 0) break;
    used += static_cast<std::size_t>(got);
  }
  content.resize(used);
  return content;
}

std::optional<std::string> ReadFile(const std::string& path) {
  const Descriptor file(open(path.c_str(), O_RDONLY | kOpenFlags));
  const auto status = RegularStatus(file);
  if (!status) return {};
  return ReadAll(file, static_cast<std::size_t>(status->st_size) + 1);
}

// Readable as well: behind what could not be read nothing is appended. In one write, so that no reader sees a
// part of it; a part that got there all the same goes again.
bool Append(const std::string& path, std::string_view text, int createFlag) {
  const Descriptor file(open(path.c_str(), O_RDWR | O_APPEND | createFlag | kOpenFlags, kMode));
  const auto before = RegularStatus(file);
  if (!before) return false;
  ssize_t written = 0;
  do {
    written = write(file.Get(), text.data(), text.size());
  } while (written < 0 && errno == EINTR);
  const bool whole = written == static_cast<ssize_t>(text.size());
  // Should that fail too, the part stays as a line that the next append ends.
  if (!whole && written > 0) static_cast<void>(!ftruncate(file.Get(), before->st_size));
  return whole;
}

// Whoever may not give a file away keeps it; the mode is what readers depend on.
bool TakeModeAndOwner(const Descriptor& file, const std::string& path) {
  struct stat old {};
  if (stat(path.c_str(), &old) != 0) return false;
  if (fchown(file.Get(), old.st_uid, old.st_gid) != 0 && errno != EPERM && errno != EINVAL) return false;
  return fchmod(file.Get(), old.st_mode & 07777) == 0;
}

bool Replace(const std::string& directory, const HostFileKind& kind, std::string_view content) {
  const std::string path = directory + kind.name;
  const std::string temporary = directory + kind.temporaryName;
  {
    // What a crash has left there is no longer wanted.
    const Descriptor file(
        open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | kOpenFlags, S_IRUSR | S_IWUSR));
    if (!RegularStatus(file)) return false;
    if (!WriteAll(file, content) || !TakeModeAndOwner(file, path) || fsync(file.Get()) != 0) {
      unlink(temporary.c_str());
      return false;
    }
  }
  if (rename(temporary.c_str(), path.c_str()) != 0) return false;
  const Descriptor folder(
      open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folder.IsOpen()) fsync(folder.Get());
  return true;
}

// Where the piece begins that holds the byte at `position`; one begins at `from`.
std::size_t PieceBegin(std::string_view content, std::size_t from, std::size_t position) {
  const std::size_t newline = content.substr(from, position - from).rfind('\n');
  const std::size_t begin = newline == std::string_view::npos ? from : from + newline + 1;
  return position - (position - begin) % HostFilePieces::kMaxPiece;
}

// The next piece, from `from` on, that names the host; empty when there is none. Only what can be such a piece
// is parsed: a host file has thousands of lines.
std::string_view FindPiece(std::string_view content, std::size_t from, std::string_view host,
                           const HostFileKind& kind) {
  while (!host.empty() && from < content.size()) {
    if (kind.hostIsVerbatim) {
      const void* found = memmem(content.data() + from, content.size() - from, host.data(), host.size());
      if (found == nullptr) break;
      from =
          PieceBegin(content, from, static_cast<std::size_t>(static_cast<const char*>(found) - content.data()));
    }
    HostFilePieces pieces(content.substr(from));
    const std::string_view piece = pieces.Next().value_or(std::string_view());
    if (kind.hostOf(pieces.Line(piece)) == host) return piece;
    from += piece.size();
  }
  return {};
}

// The content without the pieces of that host; nothing when there is none.
std::optional<std::string> ContentWithout(std::string_view content, std::string_view host,
                                          const HostFileKind& kind) {
  std::string kept;
  std::size_t from = 0;
  for (;;) {
    const std::string_view piece = FindPiece(content, from, host, kind);
    if (piece.empty()) break;
    const auto begin = static_cast<std::size_t>(piece.data() - content.data());
    kept += content.substr(from, begin - from);
    from = begin + piece.size();
  }
  if (from == 0) return {};
  kept += content.substr(from);
  return kept;
}

class SCOPED_CAPABILITY HostFileGuard {
 public:
  explicit HostFileGuard(HostFile& file) ACQUIRE(file) : m_File(file) { m_File.Lock(); }
  HostFileGuard(HostFile& file, std::adopt_lock_t /*locked*/) REQUIRES(file) : m_File(file) {}
  ~HostFileGuard() RELEASE() { m_File.Unlock(); }
  HostFileGuard(const HostFileGuard&) = delete;
  HostFileGuard& operator=(const HostFileGuard&) = delete;

 private:
  HostFile& m_File;
};

}  // namespace

const HostFileKind kOobHostsFile = {"hbahosts.lst", "hbahosts.tmp", "hbahost_lock", OobHostOf, true};
const HostFileKind kCimHostsFile = {"zylhbacimhosts.so", "zylhbacimhosts.tmp", "hbacimhost_lock", CimHostOf,
                                    false};

std::optional<std::string> ReadHostFile(const HostFileKind& kind) {
  const auto directory = InstallDirectory();
  return directory ? ReadFile(*directory + kind.name) : std::nullopt;
}

std::optional<std::string_view> HostFilePieces::Next() {
  if (m_Rest.empty()) return {};
  const std::size_t newline = m_Rest.substr(0, kMaxPiece).find('\n');
  const std::size_t size = newline == std::string_view::npos ? std::min(m_Rest.size(), kMaxPiece) : newline + 1;
  const std::string_view piece = m_Rest.substr(0, size);
  m_Rest.remove_prefix(size);
  return piece;
}

char* HostFilePieces::Line(std::string_view piece) {
  std::copy(piece.begin(), piece.end(), m_Line.begin());
  m_Line[piece.size()] = '\0';
  return m_Line.data();
}

HostFile::HostFile(const HostFileKind& kind)
    : m_Kind(kind),
      m_ProcessLock(&kind == &kCimHostsFile ? gs_CimFileLock : gs_OobFileLock),
      m_Handle(RM_OpenGlobalLock(kind.lockName)) {}

HostFile::~HostFile() {
  if (m_Handle != nullptr) RM_CloseGlobalLock(m_Handle);
}

// The capability is the pair of both locks, which no analysis can follow.
void HostFile::Lock() NO_THREAD_SAFETY_ANALYSIS {
  m_ProcessLock.GetLock();
  m_HasHandle = m_Handle != nullptr && RM_GetGlobalLock(m_Handle) == RM_STATUS_OK;
}

// Whoever has the file may be waiting for another process.
bool HostFile::LockUnless(const std::function<bool()>& stopped) NO_THREAD_SAFETY_ANALYSIS {
  while (!m_ProcessLock.TryLock()) {
    if (stopped()) return false;
    ZylSleep(kLockPoll);
  }
  m_HasHandle = m_Handle != nullptr && RM_GetGlobalLock(m_Handle) == RM_STATUS_OK;
  return true;
}

void HostFile::Unlock() NO_THREAD_SAFETY_ANALYSIS {
  if (m_HasHandle) RM_ReleaseGlobalLock(m_Handle);
  m_ProcessLock.ReleaseLock();
}

std::optional<std::string> HostFile::Read(const std::function<bool()>& stopped) {
  if (!LockUnless(stopped)) return {};
  const HostFileGuard guard(*this, std::adopt_lock);
  return ReadHostFile(m_Kind);
}

bool HostFile::FindHostAndRepair(std::string_view host) {
  const auto directory = InstallDirectory();
  const auto content = directory ? ReadFile(*directory + m_Kind.name) : std::nullopt;
  if (!content) return false;
  const bool found = !FindPiece(*content, 0, host, m_Kind).empty();
  if (!content->empty() && !content->ends_with('\n')) Append(*directory + m_Kind.name, "\n", 0);
  return found;
}

bool HostFile::HasHost(std::string_view host) {
  const HostFileGuard guard(*this);
  return FindHostAndRepair(host);
}

HostFile::Added HostFile::AddLine(std::string_view host, std::string_view line) {
  const HostFileGuard guard(*this);
  if (FindHostAndRepair(host)) return Added::kDuplicate;
  const auto directory = InstallDirectory();
  if (!directory || !Append(*directory + m_Kind.name, line, O_CREAT)) return Added::kFailed;
  return Added::kDone;
}

bool HostFile::RemoveHost(std::string_view host) {
  const HostFileGuard guard(*this);
  const auto directory = InstallDirectory();
  const auto content = directory ? ReadFile(*directory + m_Kind.name) : std::nullopt;
  if (!content) return false;
  const auto kept = ContentWithout(*content, host, m_Kind);
  if (kept) return Replace(*directory, m_Kind, *kept);
  unlink((*directory + m_Kind.temporaryName).c_str());
  return false;
}
