#include "provider/fabric/FabricReload.h"

#include "provider/ProviderLog.h"
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
         written.tv_sec == other.written.tv_sec && written.tv_nsec == other.written.tv_nsec;
}

FabricReload::Identity FabricReload::Identify(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return {};
  const std::time_t age = std::time(nullptr) - status.st_mtim.tv_sec;
  return {status.st_dev, status.st_ino, status.st_size, status.st_mtim, age >= kSettledSeconds || age < 0};
}

FabricReload::FabricReload(std::string path)
    : m_Path(std::move(path)), m_NextLook((Clock::now() + kLookInterval).time_since_epoch().count()) {
  // Identified before it is read: a writing in between is seen by the next look.
  m_Identity = Identify(m_Path);
  m_Text = ReadText();
  m_Fabric = Load(m_Text);
}

std::string FabricReload::ReadText() const {
  try {
    return ReadFabricText(m_Path);
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(m_Path + ": " + error.what());
  }
}

std::shared_ptr<Fabric> FabricReload::Load(const std::string& text) const {
  try {
    return std::make_shared<Fabric>(ReadFabricModel(ParseFabricText(text)));
  } catch (const FabricError& error) {
    throw std::runtime_error(m_Path + ":" + error.what());
  }
}

std::shared_ptr<Fabric> FabricReload::Current() {
  const Clock::time_point now = Clock::now();
  if (now.time_since_epoch().count() >= m_NextLook.load() && m_LookMutex.TryLock()) {
    const MutexLock looking(m_LookMutex, std::adopt_lock);
    m_NextLook = (now + kLookInterval).time_since_epoch().count();
    LookAgain();
  }
  const MutexLock held(m_FabricMutex);
  return m_Fabric;
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

void FabricReload::Install(std::shared_ptr<Fabric> fabric) {
  {
    const MutexLock held(m_FabricMutex);
    std::swap(m_Fabric, fabric);
  }
  // What hangs on the old content would hang for ever.
  fabric->faults.EndSleeps();
}

}  // namespace provider
