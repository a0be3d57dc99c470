#include "config/KeyValueFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

#include "config/FileDescriptor.h"
#include "thread/zyl_thread.h"

namespace {

constexpr std::size_t kPieceLength = 254;
constexpr mode_t kMode = 0660;

// Reads a file in pieces: lines with their newline, cut into parts where they are longer than a piece.
class PieceReader {
 public:
  explicit PieceReader(const char* path) : m_File(OpenForReading(path)) {}

  bool IsOpen() const { return m_File != nullptr; }

  // The next piece, whatever bytes it has, good until the next call; nothing at the end of the file.
  std::optional<std::string_view> Next() {
    std::size_t length = 0;
    while (length < m_Piece.size() && (length == 0 || m_Piece[length - 1] != '\n')) {
      const int byte = std::getc(m_File.get());
      if (byte == EOF) break;
      m_Piece[length++] = static_cast<char>(byte);
    }
    if (length == 0) return {};
    return std::string_view(m_Piece.data(), length);
  }

  bool Failed() const { return std::ferror(m_File.get()) != 0; }

 private:
  FileStream m_File;
  std::array<char, kPieceLength> m_Piece{};
};

// The value, up to and including the newline, when the piece answers for the key. Only the piece's own key is
// compared: one that is the beginning of the wanted key answers too, and an empty one answers for everything.
std::optional<std::string_view> ValueFor(std::string_view key, std::string_view piece) {
  const std::size_t colon = piece.find(':');
  if (colon == std::string_view::npos || !key.starts_with(piece.substr(0, colon))) return {};
  return piece.substr(colon + 1);
}

// Fills the whole buffer: the text, up to a NUL of its own and cut to fit, then NULs. One newline at the end
// goes.
void CopyValue(std::string_view text, char* value, std::size_t size) {
  text = text.substr(0, std::min(text.find('\0'), size - 1));
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

// The file beside a settings file that takes its place; gone with the object when it has not.
//
// Whoever holds the lock on it is the only one who writes the settings file, of all threads and processes. Its
// name belongs to him as well: another may have moved the file into place while this one waited, and only a
// file that still bears the name may be written.
class TemporaryFile {
 public:
  explicit TemporaryFile(const char* path) : m_Path(std::string(path) + ".%") { Take(); }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() {
    if (m_File.IsOpen() && IsNamed(m_File, m_Path)) unlink(m_Path.c_str());
  }

  bool IsOpen() const { return m_File.IsOpen(); }

  // Another writer had it all the time.
  bool IsBusy() const { return m_IsBusy; }

  // On disk before it takes the name, and the name is taken before the lock goes.
  bool MoveTo(const char* path, std::string_view text) {
    if (!WriteAll(m_File, text) || fsync(m_File.Get()) != 0 || !IsNamed(m_File, m_Path) ||
        rename(m_Path.c_str(), path) != 0) {
      return false;
    }
    m_File = Descriptor();
    return true;
  }

 private:
  using Clock = std::chrono::steady_clock;

  // Long for a write, also on a busy disk. Who takes longer is stopped, and may be for ever.
  static constexpr std::chrono::seconds kLongestWait{10};
  static constexpr unsigned int kPoll = 2000;  // microseconds
  static constexpr int kFlags = O_WRONLY | O_NOFOLLOW;

  enum class Other { kGone, kWriting, kStays };

  // Always a new file: one that a crashed writer left may have another owner and mode.
  void Take() {
    const Clock::time_point giveUp = Clock::now() + kLongestWait;
    do {
      Descriptor file = OpenFile(m_Path.c_str(), kFlags | O_CREAT | O_EXCL, kMode);
      if (!file.IsOpen() && errno != EEXIST) return;
      if (file.IsOpen()) {
        const bool isLocked = Lock(file);
        if (isLocked && IsNamed(file, m_Path)) {
          m_File = std::move(file);
          return;
        }
        if (!isLocked && errno != EWOULDBLOCK) {
          unlink(m_Path.c_str());
          return;
        }
      }
      const Other other = RemoveOther();
      if (other == Other::kStays) return;
      if (other == Other::kWriting) ZylSleep(kPoll);
    } while (Clock::now() < giveUp);
    m_IsBusy = true;
  }

  static bool Lock(const Descriptor& file) { return flock(file.Get(), LOCK_EX | LOCK_NB) == 0; }

  // Removes what a writer has left behind, and what is no file and so no writer's. A link goes, not what it
  // leads to.
  Other RemoveOther() const {
    struct stat status {};
    if (lstat(m_Path.c_str(), &status) != 0) return errno == ENOENT ? Other::kGone : Other::kStays;
    Descriptor file;  // locked until the name is free
    if (S_ISREG(status.st_mode)) {
      file = OpenFile(m_Path.c_str(), kFlags);
      if (!file.IsOpen()) return errno == ENOENT ? Other::kGone : Other::kStays;
      if (!Lock(file)) return errno == EWOULDBLOCK ? Other::kWriting : Other::kStays;
      if (!IsNamed(file, m_Path)) return Other::kGone;
    }
    return unlink(m_Path.c_str()) == 0 || errno == ENOENT ? Other::kGone : Other::kStays;
  }

  const std::string m_Path;
  Descriptor m_File;
  bool m_IsBusy = false;
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

// In one write, so that no reader sees a part of it. What gets there when there is no room for all of it goes
// again, unless somebody who knows no lock has appended more meanwhile.
bool AppendWhole(const Descriptor& file, std::string_view text) {
  ssize_t written = 0;
  do {
    written = write(file.Get(), text.data(), text.size());
  } while (written < 0 && errno == EINTR);
  if (written == static_cast<ssize_t>(text.size())) return true;
  const off_t end = lseek(file.Get(), 0, SEEK_CUR);
  struct stat status {};
  if (written > 0 && fstat(file.Get(), &status) == 0 && status.st_size == end) {
    static_cast<void>(!ftruncate(file.Get(), end - written));
  }
  return false;
}

int Append(const char* path, const char* key, const char* value) {
  constexpr int kFlags = O_APPEND | O_CREAT;
  // Only for its lock: what is appended while another writer copies the file would be lost. Who may not make
  // files beside this one appends all the same.
  const TemporaryFile turn(path);
  if (turn.IsBusy()) return kSettingsFileError;
  Descriptor file = OpenFile(path, O_RDWR | kFlags, kMode);
  // Who may not read the file may still write it; only an unfinished last line then goes unseen.
  if (!file.IsOpen() && errno == EACCES) file = OpenFile(path, O_WRONLY | kFlags, kMode);
  if (!file.IsOpen()) return kSettingsFileError;
  const std::string separator = EndsInsideLine(file) ? "\n" : "";
  return AppendWhole(file, separator + Line(key, value)) ? kSettingsDone : kSettingsFileError;
}

int Replace(const char* path, const char* key, const char* value) {
  if (!CreateIfMissing(path)) return kSettingsFileError;
  TemporaryFile temporary(path);
  if (!temporary.IsOpen()) return kSettingsFileError;
  // Read only now, when no other writer is at it: what one has just put in place is kept.
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
  return OpenFile(path, O_WRONLY | O_CREAT, kMode).IsOpen();
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
