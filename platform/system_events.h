// Tells of the system's events as they come.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/system_event.h"

namespace platform {

class Runtime;

/// Is called on a thread of the source, one call at a time. Must not throw, should not block for long, and must not end
/// the source.
using SystemEventCallback = std::function<void(const SystemEvent&)>;

/// Tells as long as it lives. When its destructor returns, no callback runs and none will.
class SystemEventSource {
 public:
  SystemEventSource() = default;
  SystemEventSource(const SystemEventSource&) = delete;
  SystemEventSource& operator=(const SystemEventSource&) = delete;
  virtual ~SystemEventSource() = default;
};

struct SystemEventOpening {
  std::unique_ptr<SystemEventSource> source;  ///< Null: there is none, or it could not be opened.
  std::string problem;                        ///< Why it could not; empty where there is none to open.
};

/// Any thread.
class SystemEvents {
 public:
  SystemEvents() = default;
  SystemEvents(const SystemEvents&) = delete;
  SystemEvents& operator=(const SystemEvents&) = delete;
  virtual ~SystemEvents() = default;

  /// Changes only: who needs the present state reads it from Power after the opening. Nothing wakes up while nothing
  /// happens, but for a battery whose driver tells nothing (Linux). Power is told to who has registered for it
  /// (Power::Register) alone. `runtime` and the machine must outlive the source.
  ///
  /// Windows calls nobody back: its events come to the service's control handler (service_control_event.h). There the
  /// source is the service's wish to be told of drives, too; `service` is its SERVICE_STATUS_HANDLE, which has to stay
  /// valid as long. Null: no service, which is told nothing. Other systems do not look at it.
  /// A recorded machine tells nothing.
  virtual SystemEventOpening Open(Runtime& runtime, SystemEventCallback callback, void* service = nullptr) = 0;
};

/// Of a machine without a source of its own.
class NoSystemEvents final : public SystemEvents {
 public:
  SystemEventOpening Open(Runtime& /*runtime*/, SystemEventCallback /*callback*/, void* /*service*/) override {
    return {};
  }
};

}  // namespace platform
