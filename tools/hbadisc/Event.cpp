#include "tools/hbadisc/Event.h"

#include <algorithm>
#include <ranges>
#include <span>
#include <utility>

#include "include/hbadiscovery.h"
#include "tools/hbadisc/Table.h"
#include "tools/hbadisc/Text.h"
#include "tools/hbadisc/Words.h"

namespace hbadisc {

namespace {

// What the line is about, in one word or two; the widest is "intermediate".
std::string ReasonWord(const Event& event) {
  if (event.reason & HBADISC_REASON_INTERMEDIATE) return "intermediate";
  if (event.first) return "first look";
  if (event.reason & HBADISC_REASON_DIRECTED) return "directed";
  return event.HasNews() ? "changed" : "no change";
}

using Changes = std::span<const Change>;
using Path = std::span<const std::string>;

// "target 50:... ready" for targets, 0x50..., ready: an item's name follows what it is.
std::string PathText(Path path) {
  std::string text;
  for (auto key = path.begin(); key != path.end(); ++key) {
    if (!text.empty()) text += ' ';
    const std::string_view item = ItemWords(*key);
    if (item.empty() || key + 1 == path.end()) {
      text += KeyWords(*key);
    } else {
      text.append(item).append(" ").append(NameText(*++key));
    }
  }
  return text;
}

Path ParentOf(const Change& change) {
  return Path(change.path).first(change.path.size() - 1);
}

// Whether two changes are told in one: ports that came, ports that went, or items of one list of a port that
// did.
bool BelongTogether(const Change& one, const Change& other) {
  if (one.kind != other.kind || one.kind == ChangeKind::Changed) return false;
  if (one.path.empty() || other.path.empty()) return one.path.empty() && other.path.empty();
  return one.port == other.port && std::ranges::equal(ParentOf(one), ParentOf(other));
}

// The changes at the front that are told in one.
Changes FirstRun(Changes changes) {
  std::size_t length = 1;
  while (length < changes.size() && BelongTogether(changes.front(), changes[length])) ++length;
  return changes.first(length);
}

// "added 10:... (FC, link up), 10:... (NIC, link down)".
std::string PortsText(Changes run) {
  std::string text(KindText(run.front().kind));
  for (const Change& change : run) {
    text += (&change == &run.front() ? " " : ", ") + NameText(change.port);
    if (change.kind != ChangeKind::Added) continue;
    text += " (" + ValueText(change.after["kind"]) + ", link " + ValueText(change.after["link"]) + ')';
  }
  return text;
}

// "targets 50:..., 50:... and 3 more removed"; the JSON has them all.
std::string ItemsText(Changes run) {
  constexpr std::size_t kNamed = 4;
  std::string text = PathText(ParentOf(run.front()));
  for (const Change& change : run.first(std::min(kNamed, run.size()))) {
    text += (&change == &run.front() ? " " : ", ") + NameText(change.path.back());
  }
  if (run.size() > kNamed) text += " and " + std::to_string(run.size() - kNamed) + " more";
  return text + ' ' + std::string(KindText(run.front().kind));
}

// Of a port that does not answer, or does again.
std::string SilenceText(const Json& silence) {
  if (silence.is_null()) return "answers again";
  return "does not answer (" + ValueText(silence["reason"]) + ')';
}

std::string RunText(Changes run) {
  const Change& first = run.front();
  if (first.path.empty()) return PortsText(run);
  if (run.size() > 1) return ItemsText(run);
  if (first.path.back() == "unanswered") return SilenceText(first.after);
  const std::string path = PathText(first.path);
  if (first.kind != ChangeKind::Changed) return path + ' ' + std::string(KindText(first.kind));
  return path + ' ' + ValueText(first.before) + " -> " + ValueText(first.after);
}

Style StyleOf(const Change& change) {
  if (change.kind == ChangeKind::Added) return Style::Good;
  if (change.kind == ChangeKind::Removed) return Style::Bad;
  if (change.path.back() == "unanswered") return change.after.is_null() ? Style::Good : Style::Bad;
  if (change.path.back() != "link") return Style::Plain;
  return change.after == "up" ? Style::Good : Style::Bad;
}

// "10:00:...: link up -> down, targets 2 -> 1; removed 10:00:...": changes of one port stand together.
std::string ChangesText(Changes changes, bool colour) {
  std::string text;
  std::string_view port;
  while (!changes.empty()) {
    const Changes run = FirstRun(changes);
    const Change& first = run.front();
    const bool whole = first.path.empty();
    const bool same = !whole && first.port == port;
    if (!text.empty()) text += same ? ", " : "; ";
    if (!whole && !same) text += NameText(first.port) + ": ";
    text += Styled(Printable(RunText(run)), StyleOf(first), colour);
    port = whole ? std::string_view() : first.port;
    changes = changes.subspan(run.size());
  }
  return text;
}

Json ToJson(const Change& change) {
  return {{"port", change.port},
          {"path", change.path},
          {"change", KindText(change.kind)},
          {"before", change.before},
          {"after", change.after}};
}

}  // namespace

std::vector<std::string> ReasonNames(unsigned int reason) {
  static constexpr std::pair<unsigned int, const char*> kNames[] = {
      {HBADISC_REASON_EVERY_CYCLE, "every_cycle"},
      {HBADISC_REASON_FORCED, "forced"},
      {HBADISC_REASON_CHANGED, "changed"},
      {HBADISC_REASON_DIRECTED, "directed"},
      {HBADISC_REASON_INTERMEDIATE, "intermediate"}};
  std::vector<std::string> names;
  for (const auto& [bit, name] : kNames) {
    if (reason & bit) names.emplace_back(name);
  }
  return names;
}

Json ToJson(const Event& event) {
  Json changes = Json::array();
  for (const Change& change : event.changes) changes.push_back(ToJson(change));
  return {{"event", event.number},           {"time", IsoTime(event.time)},
          {"reason", event.reason},          {"reasons", ReasonNames(event.reason)},
          {"port_count", event.portCount},   {"changes", changes},
          {"hosts", ToJsonList(event.hosts)}};
}

std::string EventLine(const Event& event, bool colour) {
  constexpr std::size_t kReasonWidth = 12;
  std::string reason = ReasonWord(event);
  reason.resize(std::max(reason.size(), kReasonWidth), ' ');
  std::string line = LocalTime(event.time) + "  " + reason + "  " + Counted(event.portCount, "port");
  std::string news = ChangesText(event.changes, colour);
  for (const RemoteHost& host : event.hosts) {
    if (!news.empty()) news += "; ";
    const bool silent = IsSilent(host);
    const std::string text =
        "host " + host.host + (silent ? " does not answer (" + host.stateText + ')' : " answers");
    news += Styled(Printable(text), silent ? Style::Bad : Style::Good, colour);
  }
  if (!news.empty()) line += "  " + news;
  return line + '\n';
}

}  // namespace hbadisc
