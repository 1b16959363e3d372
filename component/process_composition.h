// The composition of this process: on its own runtime, this computer and the places of its options.
#pragma once

#include <memory>

#include "component/composition.h"
#include "platform/local.h"
#include "tvk/component.h"

namespace TVK {

/// One in a process.
class ProcessComposition {
 public:
  /// Opens all that can be opened; `result` says whether anything is missing that the component cannot do without.
  /// Null when the sysroot of `options` is no folder: there is no machine then.
  static std::unique_ptr<ProcessComposition> Open(const ComponentOptions& options, RecordObserver observer,
                                                  RemarkObserver remarks, ComponentResult& result);

  Composition& composition() { return composition_; }
  /// Where other processes reach the service; see platform::ListenLocally.
  const std::filesystem::path& channel_place() const { return channel_place_; }

 private:
  ProcessComposition(const Composition::Places& places, const std::filesystem::path& named_event_folder,
                     const std::filesystem::path& sysroot, std::shared_ptr<const LastErrors> errors,
                     RemarkObserver remarks)
      : channel_place_(places.channel),
        runtime_(platform::MakeRealRuntime({.named_event_folder = named_event_folder})),
        machine_(platform::OpenLocalMachine({.sysroot = sysroot}, runtime_->clock())),
        composition_(*runtime_, *machine_, places, {.errors = std::move(errors)}, std::move(remarks)) {}

  const std::filesystem::path channel_place_;
  const std::unique_ptr<platform::Runtime> runtime_;
  const std::unique_ptr<platform::Machine> machine_;
  Composition composition_;
};

}  // namespace TVK
