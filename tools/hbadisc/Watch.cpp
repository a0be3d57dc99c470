#include "tools/hbadisc/Watch.h"

#include <algorithm>
#include <exception>
#include <map>
#include <utility>

#include "include/hbadiscovery.h"
#include "tools/hbadisc/Changes.h"
#include "tools/hbadisc/Discovery.h"
#include "tools/hbadisc/Progress.h"
#include "tools/hbadisc/StopSignal.h"

namespace hbadisc {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// In place of a callback's reason.
constexpr unsigned int kNoCallBack = 0x80000000;

// What an event document is before its first event.
std::string DocumentStart() {
  return "{\"format_version\":" + std::to_string(kFormatVersion) + ",\"events\":[\n";
}

class Watcher {
 public:
  Watcher(const Options& options, Output& output, Messages& messages)
      : m_Options(options), m_Output(output), m_Messages(messages), m_Writer(options.format, output) {}

  int Run();

 private:
  void WatchAndClose(const Notices& notices);
  void Watch(const Notices& notices);
  std::optional<Notice> AwaitNews(const Notices& notices);
  void Report(unsigned int reason);
  std::vector<RemoteHost> HostNews();
  void LookAgainWhenDue();
  milliseconds UntilNextStep() const;

  const Options& m_Options;
  Output& m_Output;
  Messages& m_Messages;
  EventWriter m_Writer;
  Follower m_Follower{m_Options.scope};
  steady_clock::time_point m_LookBegan = steady_clock::now();
  bool m_Looking = true;  // one that was asked for has not ended yet
  bool m_FirstLookEnded = false;
  unsigned int m_EventCount = 0;
  std::map<std::string, bool> m_SilentHosts;
};

int Watcher::Run() {
  const Notices notices;
  const StopSignal stopSignal(notices);
  Discovery discovery(m_Options.scope, notices);
  m_Messages.Detail("discovery is started, a look every " + std::to_string(m_Options.intervalSeconds) + " s");
  WatchAndClose(notices);
  m_Messages.ClearProgress();
  m_Messages.Detail("stopping discovery");
  discovery.Stop(kOk);
  return kOk;
}

void Watcher::WatchAndClose(const Notices& notices) {
  try {
    Watch(notices);
    m_Writer.Close(m_FirstLookEnded, Json());
  } catch (const OutputError&) {
    throw;
  } catch (const std::exception& error) {
    m_Writer.Close(false, error.what());
    throw;
  }
}

// A first look may take as long as it likes.
void Watcher::Watch(const Notices& notices) {
  while (!StopSignal::Requested()) {
    const std::optional<Notice> notice = AwaitNews(notices);
    if (notice && notice->reason != 0) Report(notice->reason);
    if (m_Options.callbackCount != 0 && m_EventCount >= m_Options.callbackCount) return;
    if (!m_Output.HasReader()) throw OutputError("");
    LookAgainWhenDue();
    if (!m_FirstLookEnded && m_Messages.ShowsProgress()) {
      m_Messages.Progress(ProgressText(
          m_Options.scope, std::chrono::duration_cast<milliseconds>(steady_clock::now() - m_LookBegan)));
    }
  }
}

// A callback; or changes that none has come for, as of remote hosts that no longer answer.
std::optional<Notice> Watcher::AwaitNews(const Notices& notices) {
  // Discovery notes what has changed and then calls back: both are one look.
  constexpr milliseconds kTogether{300};
  const int changes = m_FirstLookEnded ? m_Follower.Descriptor() : -1;
  std::optional<Notice> notice = notices.Wait(UntilNextStep(), m_Output.Descriptor(), changes);
  if (notice || !Notices::IsReadable(changes)) return notice;
  notice = notices.Wait(kTogether, m_Output.Descriptor());
  if (!notice) notice = Notice{0, kNoCallBack};
  return notice;
}

void Watcher::Report(unsigned int reason) {
  Event event;
  bool lost = false;
  if (m_FirstLookEnded) m_Follower.Forget();
  event.changes = m_FirstLookEnded ? m_Follower.Next(&lost) : m_Follower.Begin();
  if (!m_FirstLookEnded) m_Follower.Forget();
  event.hosts = HostNews();
  event.time = Now();
  event.reason = reason & ~kNoCallBack;
  event.first = !m_FirstLookEnded && (reason & HBADISC_REASON_FORCED) != 0;
  event.portCount = m_Follower.PortCount();
  if (reason & HBADISC_REASON_FORCED) {
    m_FirstLookEnded = true;
    m_Looking = false;
  }
  if (lost) m_Messages.Say("there were too many changes to tell them one by one");
  if (!event.HasNews() && (m_Options.changesOnly || reason == kNoCallBack)) return;
  event.number = ++m_EventCount;
  m_Messages.ClearProgress();
  m_Writer.Write(event);
}

// Hosts whose silence has begun or ended.
std::vector<RemoteHost> Watcher::HostNews() {
  std::vector<RemoteHost> news;
  if (m_Options.scope == Scope::LocalHost) return news;
  std::map<std::string, bool> before = std::exchange(m_SilentHosts, {});
  for (RemoteHost& host : ReadHosts()) {
    if (!WasAsked(host)) continue;
    const bool silent = IsSilent(host);
    m_SilentHosts[host.host] = silent;
    const auto known = before.find(host.host);
    if (known == before.end() ? silent : known->second != silent) news.push_back(std::move(host));
  }
  return news;
}

// A periodic cycle may look at links and known names alone; one that is asked for looks at everything.
void Watcher::LookAgainWhenDue() {
  if (m_Looking || steady_clock::now() - m_LookBegan < std::chrono::seconds(m_Options.intervalSeconds)) return;
  m_LookBegan = steady_clock::now();
  m_Looking = HBADisc_StartDiscoveryCycle() != 0;
}

milliseconds Watcher::UntilNextStep() const {
  constexpr milliseconds kProgressStep{1000};
  if (m_Looking) return kProgressStep;
  const auto due = m_LookBegan + std::chrono::seconds(m_Options.intervalSeconds);
  const auto left = std::chrono::ceil<milliseconds>(due - steady_clock::now());
  return std::max(left, milliseconds(0));
}

}  // namespace

void EventWriter::Write(const Event& event) {
  if (m_Format == Format::Table) return m_Output.Write(EventLine(event, m_Output.Colour()));
  if (m_Format == Format::JsonLines) return m_Output.Write(Dump(Document(ToJson(event)), Layout::OneLine));
  m_Output.Write((m_Open ? "," : DocumentStart()) + Dump(ToJson(event), Layout::OneLine));
  m_Open = true;
}

void EventWriter::Close(bool complete, const Json& error) {
  if (m_Format != Format::JsonDocument) return;
  const Json end = {{"complete", complete}, {"error", error}};
  m_Output.Write((m_Open ? "" : DocumentStart()) + "]," + Dump(end, Layout::OneLine).substr(1));
}

int RunWatch(const Options& options, Output& output, Messages& messages) {
  return Watcher(options, output, messages).Run();
}

}  // namespace hbadisc
