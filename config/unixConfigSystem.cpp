// What the settings ask of the system: whether it can be written to, and how a path is put together.
#include <sys/statvfs.h>

#include <algorithm>
#include <atomic>
#include <string_view>

#include "config/unixConfig.h"

namespace {

// One word for "asked" and the answer, so that no thread sees the one without the other.
enum ReadOnlyAnswer { kNotAsked, kWritable, kReadOnly };
constinit std::atomic<int> gs_ReadOnlyAnswer = kNotAsked;

void CopyOut(std::string_view text, char* out) {
  if (out != nullptr) *std::copy(text.begin(), text.end(), out) = '\0';
}

}  // namespace

// A system does not change in this while it runs, so the first answer is kept. No answer is none to keep.
int IsReadOnlyFS(void) {
  int answer = gs_ReadOnlyAnswer;
  if (answer == kNotAsked) {
    struct statvfs status {};
    if (statvfs("/", &status) != 0) return 0;
    answer = (status.f_flag & ST_RDONLY) != 0 ? kReadOnly : kWritable;
    gs_ReadOnlyAnswer = answer;
  }
  return answer == kReadOnly ? 1 : 0;
}

void splitpath(const char* path, char* directory, char* name, char* extension) {
  const std::string_view whole = path != nullptr ? path : "";
  const std::size_t nameAt = whole.rfind('/') + 1;  // 0 without a slash
  const std::string_view file = whole.substr(nameAt);
  const std::size_t extensionAt = std::min(file.rfind('.'), file.size());
  CopyOut(whole.substr(0, nameAt), directory);
  CopyOut(file.substr(0, extensionAt), name);
  CopyOut(file.substr(extensionAt), extension);
}
