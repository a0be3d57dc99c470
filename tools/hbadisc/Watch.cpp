#include "tools/hbadisc/Watch.h"

#include <exception>
#include <utility>

#include "include/hbadiscovery.h"
#include "tools/hbadisc/Answer.h"
#include "tools/hbadisc/Discovery.h"
#include "tools/hbadisc/PortReader.h"
#include "tools/hbadisc/StopSignal.h"

namespace hbadisc {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

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
  // How it ended; an empty error when that was all right.
  struct End {
    ExitCode code = kOk;
    std::string error;
  };

  End WatchAndClose(const Notices& notices);
  End Watch(const Notices& notices);
  void Report(const Notice& notice);
  bool TimeIsUp() const;
  std::optional<milliseconds> RemainingTime() const;

  const Options& m_Options;
  Output& m_Output;
  Messages& m_Messages;
  EventWriter m_Writer;
  const steady_clock::time_point m_Begin = steady_clock::now();
  bool m_FirstCycleEnded = false;
  unsigned int m_EventCount = 0;
  Json m_Ports = Json::array();
};

int Watcher::Run() {
  const Notices notices;
  const StopSignal stopSignal(notices);
  Discovery discovery(m_Options.intervalSeconds, m_Options.scope, notices);
  m_Messages.Detail("discovery is started, a look every " + std::to_string(m_Options.intervalSeconds) + " s");
  const End end = WatchAndClose(notices);
  if (!end.error.empty()) m_Messages.Say(end.error);
  m_Messages.Detail("stopping discovery");
  discovery.Stop(end.code);
  return end.code;
}

Watcher::End Watcher::WatchAndClose(const Notices& notices) {
  try {
    End end = Watch(notices);
    m_Writer.Close(m_FirstCycleEnded, end.error.empty() ? Json() : Json(end.error));
    return end;
  } catch (const OutputError&) {
    throw;
  } catch (const std::exception& error) {
    m_Writer.Close(false, error.what());
    throw;
  }
}

Watcher::End Watcher::Watch(const Notices& notices) {
  while (!StopSignal::Requested()) {
    const std::optional<Notice> notice = notices.Wait(RemainingTime(), m_Output.Descriptor());
    if (notice && notice->reason != 0) Report(*notice);
    if (m_Options.callbackCount != 0 && m_EventCount >= m_Options.callbackCount) return {};
    if (!m_Output.HasReader()) throw OutputError("");
    if (TimeIsUp()) return {m_EventCount > 0 ? kPartial : kFailed, TimeLimitText(m_Options)};
  }
  return {};
}

void Watcher::Report(const Notice& notice) {
  Json ports = ToJson(ReadPorts(Details::All, m_Options.scope));
  Event event;
  event.number = ++m_EventCount;
  event.time = std::chrono::system_clock::time_point(std::chrono::seconds(notice.seconds));
  event.reason = notice.reason;
  event.portCount = ports.size();
  event.changes = Compare(m_Ports, ports);
  m_Ports = std::move(ports);
  m_Writer.Write(event);
  if (notice.reason & HBADISC_REASON_FORCED) m_FirstCycleEnded = true;
}

bool Watcher::TimeIsUp() const {
  const auto remaining = RemainingTime();
  return remaining && remaining->count() == 0;
}

// Of the first cycle; later ones may take as long as they like.
std::optional<milliseconds> Watcher::RemainingTime() const {
  if (m_FirstCycleEnded || !m_Options.timeout) return std::nullopt;
  const auto elapsed = std::chrono::duration_cast<milliseconds>(steady_clock::now() - m_Begin);
  return std::max(milliseconds(0), *m_Options.timeout - elapsed);
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
