#include "config/KeyValueFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "config/FileDescriptor.h"
#include "thread/zyl_thread.h"

namespace {

constexpr std::size_t kPieceLength = 254;
constexpr mode_t kMode = 0660;

// The writers of this process share one temporary name per file.
constinit CZylThreadLock gs_WriteLock;

// Reads a file in pieces: lines with their newline, cut into parts where they are longer than a piece.
class PieceReader {
 public:
  explicit PieceReader(const char* path) : m_File(std::fopen(path, "re"), &std::fclose) {}

  bool IsOpen() const { return m_File != nullptr; }

  // The next piece, good until the next call; nothing at the end of the file.
  std::optional<std::string_view> Next() {
    if (std::fgets(m_Piece.data(), static_cast<int>(m_Piece.size()), m_File.get()) == nullptr) return {};
    return m_Piece.data();
  }

  bool Failed() const { return std::ferror(m_File.get()) != 0; }

 private:
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> m_File;
  std::array<char, kPieceLength + 1> m_Piece{};
};

// The value, up to and including the newline, when the piece answers for the key. Only the piece's own key is
// compared: one that is the beginning of the wanted key answers too, and an empty one answers for everything.
std::optional<std::string_view> ValueFor(std::string_view key, std::string_view piece) {
  const std::size_t colon = piece.find(':');
  if (colon == std::string_view::npos || !key.starts_with(piece.substr(0, colon))) return {};
  return piece.substr(colon + 1);
}

// Fills the whole buffer: the text, cut to fit, then NULs. One newline at the end goes.
void CopyValue(std::string_view text, char* value, std::size_t size) {
  text = text.substr(0, size - 1);
  if (text.ends_with('\n')) text.remove_suffix(1);
  std::fill(std::copy(text.begin(), text.end(), value), value + size, '\0');
}

std::string Line(const char* key, const char* value) {
  return std::string(key) + ':' + value + '\n';
}

bool EndsInsideLine(const Descriptor& file) {
  struct stat status {};
  if (fstat(file.Get(), &status) != 0 || status.st_size == 0) return false;
  char last = '\n';
  return pread(file.Get(), &last, 1, status.st_size - 1) == 1 && last != '\n';
}

bool IsNamed(const Descriptor& file, const std::string& path) {
  struct stat byHandle {};
  struct stat byName {};
  return fstat(file.Get(), &byHandle) == 0 && lstat(path.c_str(), &byName) == 0 &&
         byHandle.st_dev == byName.st_dev && byHandle.st_ino == byName.st_ino;
}

bool LockExclusively(const Descriptor& file) {
  int result = 0;
  do {
    result = flock(file.Get(), LOCK_EX);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

// The file beside a settings file that takes its place; gone with the object when it has not.
//
// Its name belongs to whoever holds the lock on the file that bears it: a writer of another process may have
// moved the file into place while this one waited, and only a file that still bears the name may be written.
class TemporaryFile {
 public:
  explicit TemporaryFile(std::string path) : m_Path(std::move(path)), m_File(Open(m_Path)) {}
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() {
    if (m_File.IsOpen()) unlink(m_Path.c_str());
  }

  bool IsOpen() const { return m_File.IsOpen(); }

  // On disk before it takes the name, and the name is taken before the lock goes.
  bool MoveTo(const char* path, std::string_view text) {
    if (!WriteAll(m_File, text) || fsync(m_File.Get()) != 0 || rename(m_Path.c_str(), path) != 0) return false;
    m_File = Descriptor();
    return true;
  }

 private:
  static constexpr int kFlags = O_WRONLY | O_CLOEXEC | O_NOFOLLOW;

  // Always a new file: one that a crashed writer left may have another owner and mode.
  static Descriptor Open(const std::string& path) {
    for (;;) {
      Descriptor file(open(path.c_str(), kFlags | O_CREAT | O_EXCL, kMode));
      if (!file.IsOpen()) {
        if (errno == EEXIST && AwaitRemoval(path)) continue;
        return Descriptor();
      }
      if (!LockExclusively(file)) {
        unlink(path.c_str());
        return Descriptor();
      }
      if (IsNamed(file, path)) return file;
    }
  }

  // Waits for the writer who has the file, and removes it if he has left it behind. False when it stays.
  static bool AwaitRemoval(const std::string& path) {
    const Descriptor other(open(path.c_str(), kFlags));
    if (!other.IsOpen()) return errno == ENOENT;
    if (!LockExclusively(other)) return false;
    return !IsNamed(other, path) || unlink(path.c_str()) == 0;
  }

  const std::string m_Path;
  Descriptor m_File;
};

// The file's text with every answering piece replaced by the new line, or with that line at its end; nothing
// when the file cannot be read.
std::optional<std::string> TextWith(const char* path, const char* key, const char* value) {
  PieceReader reader(path);
  if (!reader.IsOpen()) return {};
  const std::string line = Line(key, value);
  std::string text;
  bool replaced = false;
  while (const auto piece = reader.Next()) {
    const bool answers = ValueFor(key, *piece).has_value();
    text += answers ? std::string_view(line) : *piece;
    replaced = replaced || answers;
  }
  if (reader.Failed()) return {};
  if (!replaced) {
    if (!text.empty() && !text.ends_with('\n')) text += '\n';
    text += line;
  }
  return text;
}

int Append(const char* path, const char* key, const char* value) {
  constexpr int kFlags = O_APPEND | O_CREAT | O_CLOEXEC;
  const CZylLockGuard guard(gs_WriteLock);
  Descriptor file(open(path, O_RDWR | kFlags, kMode));
  // Who may not read the file may still write it; only an unfinished last line then goes unseen.
  if (!file.IsOpen() && errno == EACCES) file = Descriptor(open(path, O_WRONLY | kFlags, kMode));
  if (!file.IsOpen()) return kSettingsFileError;
  const std::string separator = EndsInsideLine(file) ? "\n" : "";
  return WriteAll(file, separator + Line(key, value)) ? kSettingsDone : kSettingsFileError;
}

int Replace(const char* path, const char* key, const char* value) {
  const CZylLockGuard guard(gs_WriteLock);
  if (!CreateIfMissing(path)) return kSettingsFileError;
  TemporaryFile temporary(std::string(path) + ".%");
  if (!temporary.IsOpen()) return kSettingsFileError;
  // Read only now, with the temporary file locked: what another writer has just put in place is kept.
  const std::optional<std::string> text = TextWith(path, key, value);
  return text && temporary.MoveTo(path, *text) ? kSettingsDone : kSettingsFileError;
}

using Writer = int (*)(const char* path, const char* key, const char* value);

int Write(Writer writer, const char* path, const char* key, const char* value) {
  if (value == nullptr) return kSettingsNoBuffer;
  if (path == nullptr) return kSettingsFileError;
  if (key == nullptr) return kSettingsNoKey;
  try {
    return writer(path, key, value);
  } catch (...) {
    return kSettingsFileError;
  }
}

}  // namespace

bool CreateIfMissing(const char* path) {
  struct stat status {};
  if (stat(path, &status) == 0 || errno != ENOENT) return true;
  return Descriptor(open(path, O_WRONLY | O_CREAT | O_CLOEXEC, kMode)).IsOpen();
}

int getKeyValue(const char* path, const char* key, char* value, int size) {
  if (value == nullptr || size <= 0) return kSettingsNoBuffer;
  value[0] = '\0';
  if (path == nullptr) return kSettingsFileError;
  PieceReader reader(path);
  if (!reader.IsOpen()) return kSettingsFileError;
  if (key == nullptr) return kSettingsNoKey;
  while (const auto piece = reader.Next()) {
    if (const auto text = ValueFor(key, *piece)) {
      CopyValue(*text, value, static_cast<std::size_t>(size));
      return kSettingsDone;
    }
  }
  return kSettingsNoKey;
}

int setKeyValue(const char* path, const char* key, const char* value) {
  return Write(Append, path, key, value);
}

int replaceKeyValue(const char* path, const char* key, const char* value) {
  return Write(Replace, path, key, value);
}
