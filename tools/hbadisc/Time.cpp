#include "tools/hbadisc/Time.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>

namespace hbadisc {

namespace {

constexpr Moment kPerSecond = 1000;

std::string Format(const std::tm& parts, const char* format) {
  std::array<char, 40> text{};
  return {text.data(), std::strftime(text.data(), text.size(), format, &parts)};
}

}  // namespace

Moment Now() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

std::string IsoTime(Moment moment) {
  const std::time_t seconds = moment / kPerSecond;
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  return Format(parts, "%Y-%m-%dT%H:%M:%SZ");
}

std::string LocalTime(Moment moment) {
  const std::time_t seconds = moment / kPerSecond;
  std::tm parts{};
  localtime_r(&seconds, &parts);
  return Format(parts, "%Y-%m-%d %H:%M:%S");
}

std::string AgeText(Moment moment, Moment now) {
  constexpr Moment kMinute = 60;
  constexpr Moment kHour = 60 * kMinute;
  constexpr Moment kDay = 24 * kHour;
  const Moment seconds = std::max<Moment>(0, (now - moment) / kPerSecond);
  if (seconds < 2 * kMinute) return std::to_string(seconds) + " s";
  if (seconds < 2 * kHour) return std::to_string(seconds / kMinute) + " min";
  if (seconds < 2 * kDay) return std::to_string(seconds / kHour) + " h";
  return std::to_string(seconds / kDay) + " d";
}

}  // namespace hbadisc
