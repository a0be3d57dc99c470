#include "inband/ProviderLook.h"

// Of the open provider; null in others.
extern "C" void RMOpen_BeginLook(void) __attribute__((weak));
extern "C" void RMOpen_EndLook(void) __attribute__((weak));

ProviderLook::ProviderLook() {
  if (RMOpen_BeginLook != nullptr) RMOpen_BeginLook();
}

ProviderLook::~ProviderLook() {
  if (RMOpen_EndLook != nullptr) RMOpen_EndLook();
}
