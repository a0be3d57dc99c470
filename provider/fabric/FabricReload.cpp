#include "provider/fabric/FabricReload.h"

#include "provider/base/ProviderLog.h"
#include "provider/fabric/FabricError.h"
#include "provider/fabric/FabricFile.h"
#include "provider/fabric/FabricSchema.h"

namespace provider {

namespace {

constexpr std::chrono::milliseconds kLookInterval{100};
constexpr std::time_t kSettledSeconds = 2;

}  // namespace

bool FabricReload::Identity::operator==(const Identity& other) const {
  return device == other.device && inode == other.inode && size == other.size &&
         written.tv_sec == other.written.tv_sec && written.tv_nsec == other.written.tv_nsec &&
         changed.tv_sec == other.changed.tv_sec && changed.tv_nsec == other.changed.tv_nsec;
}

FabricReload::Identity FabricReload::Identify(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return {};
  const std::time_t age = std::time(nullptr) - status.st_mtim.tv_sec;
  const bool isSettled = age >= kSettledSeconds || age < 0;
  return {status.st_dev, status.st_ino, status.st_size, status.st_mtim, status.st_ctim, isSettled};
}

void FabricContent::EndSleeps() const {
  local->faults.EndSleeps();
  for (const auto& [address, host] : remote) host->faults.EndSleeps();
}

FabricReload::FabricReload(std::string path, Remote remote)
    : m_Path(std::move(path)),
      m_Remote(remote),
      m_NextLook((Clock::now() + kLookInterval).time_since_epoch().count()) {
  // Identified before it is read: a writing in between is seen by the next look.
  m_Identity = Identify(m_Path);
  m_Text = ReadText();
  m_Content = Load(m_Text);
}

std::string FabricReload::ReadText() const {
  try {
    return ReadFabricText(m_Path);
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(m_Path + ": " + error.what());
  }
}

std::shared_ptr<const FabricContent> FabricReload::Load(const std::string& text) const {
  try {
    FabricModels models = ReadFabricModels(ParseFabricText(text));
    auto content = std::make_shared<FabricContent>();
    content->local = std::make_shared<Fabric>(std::move(models.local));
    if (m_Remote == Remote::kOnlyChecked) return content;
    for (FabricModel& model : models.remote) {
      const auto host = std::make_shared<Fabric>(std::move(model));
      for (const NetAddress& address : host->model.addresses) content->remote.emplace(address, host);
    }
    return content;
  } catch (const FabricError& error) {
    throw std::runtime_error(m_Path + ":" + error.what());
  }
}

std::shared_ptr<const FabricContent> FabricReload::Current() {
  const Clock::time_point now = Clock::now();
  if (now.time_since_epoch().count() >= m_NextLook.load() && m_LookMutex.TryLock()) {
    const MutexLock looking(m_LookMutex, std::adopt_lock);
    // Anew, with the lock: the looks may have ended.
    if (now.time_since_epoch().count() >= m_NextLook.load()) {
      m_NextLook = (now + kLookInterval).time_since_epoch().count();
      LookAgain();
    }
  }
  const MutexLock held(m_ContentMutex);
  return m_Content;
}

void FabricReload::EndSleeps() {
  const MutexLock looking(m_LookMutex);
  m_NextLook = Clock::time_point::max().time_since_epoch().count();
  const MutexLock held(m_ContentMutex);
  m_Content->EndSleeps();
}

void FabricReload::LookAgain() {
  const Identity identity = Identify(m_Path);
  if (identity == m_Identity && m_Identity.settled) return;
  std::string text;
  std::string wrong;
  try {
    text = ReadText();
    if (text != m_Text) Install(Load(text));
  } catch (const std::runtime_error& error) {
    wrong = error.what();
    if (text.empty()) text = wrong;
  }
  if (!wrong.empty() && text != m_Text) LogLine(wrong + " (what was read before stays)");
  m_Text = std::move(text);
  m_Identity = identity;
}

void FabricReload::Install(std::shared_ptr<const FabricContent> content) {
  {
    const MutexLock held(m_ContentMutex);
    std::swap(m_Content, content);
  }
  // What hangs on the old content would hang for ever.
  content->EndSleeps();
}

}  // namespace provider
