// The policy and the telemetry scope in force, and the consent that follows from them.
#pragma once

#include <list>
#include <memory>
#include <mutex>
#include <string>

#include "client/identity/machine_information.h"
#include "client/log/log.h"
#include "client/policy/config_agent.h"
#include "core/dataset_decision.h"
#include "core/normalised_policy.h"
#include "framework/consent.h"
#include "platform/runtime.h"

namespace TVK {

/// Any thread. The scope in force is the one that was last told; a policy that is read before its notification arrives
/// is in force with what it withdraws, and with what it grants once its scope is taken over too.
class PolicyView final : public Consent {
 public:
  using Policy = std::shared_ptr<const NormalisedPolicy>;

  /// All must outlive the object. Until a policy was read nothing is listed, and the scope is "none".
  PolicyView(platform::Runtime& runtime, IConfigAgent& config, const DatasetTable& datasets,
             const MachineInformation& machine, const Log& log);

  /// Reads the policy, which is in force from then on. Null when there is none: what was in force stays so.
  Policy Read();
  /// The same, and its scope comes into force with it; `old_scope` receives the one before. No write that they exclude
  /// begins after that. It does not wait for those that began before: a disk may hold them up for long.
  Policy ReadWithScope(std::wstring& old_scope);

  /// The policy that was read last; one of nothing before.
  Policy in_force() const;
  std::wstring scope() const;
  /// The one of the two that keeps a dataset from running: that of the policy where it is the narrower one.
  std::wstring DecidingScope() const;
  /// Puts a scope in force until the next one is told; a text that is none of the four counts as "none". It can narrow
  /// the policy's consent, not widen it.
  void set_scope(const std::wstring& scope);

  /// By the policy and the scope in force.
  DatasetDecision Decide(const DatasetRow& row, DecisionMoment moment) const;

  bool Admits(const DatasetRow& row) override;
  bool WriteIfAdmitted(const DatasetRow& row, const std::function<void()>& write) override;

  /// Waits for the writes that are on their way and that the policy in force excludes, for a second at most, or until
  /// `stop` (which may be null) is signalled. What is not through by then (a disk that does not answer) is logged with
  /// the name `caller`, and ends when it can: nothing comes behind it.
  void WaitForExcludedWrites(const wchar_t* caller, platform::Waitable* stop);

 private:
  Policy Take(std::wstring* old_scope);
  DatasetDecision DecideLocked(const DatasetRow& row, const EligibilityFilter& device, DecisionMoment moment) const;
  const DatasetRow* FindExcludedWrite() const;
  void EndWrite(std::list<const DatasetRow*>::iterator write);

  platform::Runtime& runtime_;
  IConfigAgent& config_;
  const DatasetTable& datasets_;
  const MachineInformation& machine_;
  const Log& log_;
  const std::unique_ptr<platform::Event> write_ended_;  ///< Auto-reset; a write ended that is excluded by now.
  std::mutex take_mutex_;     ///< Held while a policy is read and put in force, so that an older one never replaces a
                              ///< newer one; taken before mutex_.
  mutable std::mutex mutex_;  ///< Guards what follows. Never held while anything is waited for or written.
  Policy policy_ = std::make_shared<const NormalisedPolicy>();
  std::wstring scope_ = L"none";
  std::list<const DatasetRow*> writes_;  ///< On their way.
};

}  // namespace TVK
