#pragma once
// Internal: the set of active captures, shared by liblog and LogCapture.

namespace hostlog {
class LogCapture;
void registerCapture(LogCapture* capture);
void unregisterCapture(LogCapture* capture);
}  // namespace hostlog
