#include "tests/system/Harness.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include "provider/OpenProvider.h"
#include "tests/support/Testing.h"

namespace systemtest {

namespace {

std::string ReadFile(const std::string& path) {
  std::ifstream file(path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// The machine's own settings are never written: outside the namespace this folder does not exist.
void RequirePrivateEtc() {
  struct stat status {};
  if (stat("/etc/varnix/quorbench", &status) != 0) {
    throw std::runtime_error("run this test through tests/system/in_namespace");
  }
}

}  // namespace

std::string Scratch(const std::string& name) {
  return "/run/lock/" + name;
}

void WriteFile(const std::string& path, const std::string& text) {
  const std::string fresh = path + ".new";
  std::ofstream(fresh) << text;
  if (std::rename(fresh.c_str(), path.c_str()) != 0) throw std::runtime_error("cannot write " + path);
}

Log::Log(unsigned int mode, const std::string& moreSettings) {
  RequirePrivateEtc();
  WriteFile(kSettingsPath,
            "DISCO_LOG_MODE:" + std::to_string(mode) + "\nDISCO_LOG_PATH:" + m_Path + "\n" + moreSettings);
}

std::string Log::Text() const {
  return ReadFile(m_Path);
}

std::size_t Log::Count(const std::string& text) const {
  const std::string log = Text();
  std::size_t count = 0;
  for (auto at = log.find(text); at != std::string::npos; at = log.find(text, at + text.size())) ++count;
  return count;
}

Library::Library() : m_Handle(dlopen(HBADISC_LIBRARY, RTLD_NOW | RTLD_GLOBAL)) {
  if (m_Handle == nullptr) throw std::runtime_error(dlerror());
}

Library::Library(const std::string& fabric) : Library() {
  const auto setSource = Symbol<decltype(&RMOpen_SetSource)>("RMOpen_SetSource");
  if (setSource("fabric", fabric.c_str()) == 0) return;
  char text[512] = {};
  Symbol<decltype(&RMOpen_LastError)>("RMOpen_LastError")(text, sizeof text);
  throw std::runtime_error(text);
}

Library::~Library() {
  dlclose(m_Handle);
}

void* Library::Find(const char* name) const {
  void* symbol = dlsym(m_Handle, name);
  if (symbol == nullptr) throw std::runtime_error(std::string("not exported: ") + name);
  return symbol;
}

std::map<std::string, hba_discovery_info_V3> Library::Ports() const {
  std::map<std::string, hba_discovery_info_V3> ports;
  hba_discovery_info_V3 record{};
  for (int more = GetFirstHbaV3(&record); more != 0; more = GetNextHbaV3(&record)) {
    ports.emplace(Digits(record.base.base.port.portWwn), record);
  }
  return ports;
}

CallBacks::CallBacks(const Library& library, unsigned int eventMask) : m_Library(library) {
  library.RegisterCallBack(OnCallBack, eventMask, this);
}

// Terminate waits for a running callback; cases end with it, so nobody calls this object any more.
CallBacks::~CallBacks() {
  m_Library.RegisterCallBack(nullptr, 0, nullptr);
}

void CallBacks::OnCallBack(unsigned int reason, void* context) {
  auto* self = static_cast<CallBacks*>(context);
  std::function<void(unsigned int)> action;
  {
    const std::lock_guard guard(self->m_Lock);
    action = self->m_Action;
  }
  if (action) action(reason);
  const std::lock_guard guard(self->m_Lock);
  self->m_Reasons.push_back(reason);
  self->m_Changed.notify_all();
}

std::vector<unsigned int> CallBacks::Reasons() const {
  const std::lock_guard guard(m_Lock);
  return m_Reasons;
}

std::vector<unsigned int> CallBacks::Await(std::size_t count, Milliseconds limit) const {
  std::unique_lock guard(m_Lock);
  m_Changed.wait_for(guard, limit, [&] { return m_Reasons.size() >= count; });
  auto reasons = m_Reasons;
  reasons.resize(std::min(count, reasons.size()));
  return reasons;
}

void CallBacks::Inside(std::function<void(unsigned int)> action) {
  const std::lock_guard guard(m_Lock);
  m_Action = std::move(action);
}

}  // namespace systemtest
