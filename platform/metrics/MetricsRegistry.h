#pragma once
// Internal: the set of active metrics captures.

namespace metricslog {
class MetricsCapture;
void registerCapture(MetricsCapture* capture);
void unregisterCapture(MetricsCapture* capture);
}  // namespace metricslog
