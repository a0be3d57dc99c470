// Delays and hangs of scripted calls, slept outside every lock.
#ifndef PROVIDER_FABRIC_FABRICPAUSE_H_
#define PROVIDER_FABRIC_FABRICPAUSE_H_

#include <chrono>
#include <optional>

namespace provider {

// Wakes who sleeps in its name. Shared between a fabric and its calls.
//
// Thread safety: locked inside.
class FabricPause {
 public:
  // Sleeps for that long, or for ever. False when it was ended early: by End, or because the process exits.
  bool Sleep(std::optional<std::chrono::milliseconds> time);

  // Ends every sleep, also those to come.
  void End();

 private:
  bool m_Ended = false;  // guarded by the one lock of all pauses
};

}  // namespace provider

#endif  // PROVIDER_FABRIC_FABRICPAUSE_H_
