// What every monitor of a dataset does alike: its dataset contexts, its device-initialisation and its item events.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "framework/event_monitor_base.h"
#include "framework/monitor_lines.h"

namespace TVK {

/// What one dataset context describes.
struct DescribedDevice {
  /// Tells the devices of one dataset apart: a battery's id, the hash of a drive's serial number. Empty for a dataset
  /// that describes the machine.
  std::wstring key;
  ItemData facts;
  /// That it is there tells of use, as a stick that was plugged in does: nothing is written of it without the consent
  /// to tell of use.
  bool of_use = false;

  bool operator==(const DescribedDevice&) const = default;
};

/// Who and what a monitor is. Everything referred to is constant and outlives the monitor.
struct MonitorIdentity {
  const DatasetRow& row;
  const std::map<std::wstring, std::wstring>& items;  ///< Item name to item id.
  const MonitorLines& lines;
  /// The row with the scopes in which the dataset may tell of use, of what people do with the machine and when; null
  /// where it may in all of its scopes.
  const DatasetRow* use_row = nullptr;
};

/// A monitor that says what there is to describe and writes its items; the records, their ids, the consent and the log
/// lines are kept here. Any thread may call every operation.
///
/// A record is written only under the row's consent, one that tells of use only under that of the use row. A context
/// that was refused is written, anew from the facts, before the first item that is admitted again. An item and its
/// dataset context are of one device context: when another one has come into force, the dataset contexts are logged
/// under it before the next item.
class DatasetMonitor : public EventMonitorBase {
 public:
  /// Opens the log that the row names: calls may come before Initialize, and beside it.
  DatasetMonitor(const MonitorServices& services, const MonitorIdentity& identity);

  /// Logs that the log is open.
  void Initialize() override;
  void UnInitialize() override {}
  std::wstring GetName() const override { return std::wstring(identity_.row.name); }
  /// Takes over, for each device that Describe gives, the id of its last context, or writes a new one: when there is
  /// none, when it says anything else of the device (a fact that is gone counts), when it names another device context
  /// than the one in force, or when `new_context_needed`. The new id holds even when the store refuses the context. A
  /// device that is not described any more has no id. Nothing happens where Describe has no answer.
  void LogDatasetContext(bool new_context_needed) override;
  /// Writes a "DeviceInit" without item data for each described device that has none under the device context in force,
  /// which the store knows: a start and the news of a new device may both ask for it. The first result of the store
  /// that is not 0; 0 also where nothing was to be written, or was withheld.
  int LogDevInitEvent() override;

  /// What writing an item gives that was withheld for want of consent: nothing of it was recorded.
  static constexpr int kWithheld = -2;

  const MonitorIdentity& identity() const { return identity_; }

  /// The manual-reset event "NAME_LogDatasetContext" of the dataset: clear while its contexts are being logged, set
  /// when that is done. Null when it could not be made.
  platform::Event* getDatasetContextEventHandle() const { return context_event_.get(); }

 protected:
  /// The devices as they are now; nothing while their facts are not known. Called by one thread at a time, and only
  /// under consent.
  virtual std::optional<std::vector<DescribedDevice>> Describe() = 0;
  /// Whether the stored context still describes a device of these facts. Every difference counts unless a dataset
  /// describes its devices once for all.
  virtual bool IsSameDescription(const ItemData& stored, const ItemData& facts) const { return stored == facts; }
  /// Whether a context of the device's key that is not the last one describes it, which is then used again: for
  /// datasets whose devices take turns in a place. By default none is.
  virtual bool IsEarlierDescription(const ItemData& /*stored*/, const ItemData& /*facts*/) const { return false; }
  /// The id of an item; nothing for a name that the dataset does not have.
  virtual std::optional<std::wstring> FindItemId(const std::wstring& item_name) const;
  /// Whether the device gets a "DeviceInit".
  virtual bool TakesDeviceInit(const std::wstring& /*device_key*/) { return true; }
  /// Told of each context that was to be written: the store's result, or kWithheld. Must not call the monitor.
  virtual void OnContextLogged(int /*result*/) {}
  /// Told after a context was written whose facts are not `before`, those of the context before it. Not for the first
  /// context of a device.
  virtual void OnDescriptionChanged(const DescribedDevice& /*device*/, const ItemData& /*before*/) {}

  /// Whether the dataset may observe now: asked right before every sample.
  bool Admits() const { return services().consent.Admits(identity_.row); }
  /// Whether it may tell of use now, too.
  bool AdmitsUse() const { return services().consent.Admits(RowFor(true)); }
  /// Whether the device has a dataset context, so that its items can be written. Contexts that are owed are written
  /// first.
  bool HasContext(const std::wstring& device_key);
  /// "Class::name", as log lines name their caller.
  std::wstring Operation(std::wstring_view name) const;
  /// Writes an item event of the device. 0 when it was written; kWithheld for want of consent; the store's result,
  /// with the line item_failure; -1, with an error line, for a name that the dataset does not have and for a device
  /// without context. `state` is kept in the store with it, or not at all; see EventDataLogging::GetState. `of_use`:
  /// what of the item tells of use; left out where that is not admitted.
  int WriteItem(const std::wstring& item_name, ItemData data, const std::wstring& device_key = {},
                const DatasetState& state = {}, ItemData of_use = {});
  /// One of several items; see WriteItem.
  struct NewItem {
    ItemData data;
    DatasetState state = {};
    ItemData of_use = {};
  };
  /// Writes several items of one name, of a dataset that describes one thing, all or none: as WriteItem does, at the
  /// cost of one flush of the disk. 0 also for none at all.
  int WriteItems(const std::wstring& item_name, std::vector<NewItem> items);
  /// WriteItem for an item that tells of use.
  int WriteItemOfUse(const std::wstring& item_name, ItemData data, const std::wstring& device_key);
  /// LogDevInitEvent when IsNewDeviceInitNeeded says so; without consent it is made up for by the next item that has
  /// it. Else the devices that have no "DeviceInit" of this client while another one of the dataset has get theirs: a
  /// kill, or a full disk, came between the two, or the device came later.
  void InitialiseDevice();
  /// The next LogDevInitEvent writes one of this device again, which is another one by now. 0, or the store's result.
  int ForgetDeviceInit(const std::wstring& device_key);
  void ResetContextEvent() const;

 private:
  struct Change {
    DescribedDevice device;
    ItemData before;
  };
  struct ContextIds {
    std::wstring dataset_context;
    std::wstring device_context;  ///< That it was written under.
    bool of_use = false;          ///< As of the device.
  };
  using Ids = std::map<std::wstring, ContextIds>;

  const DatasetRow& RowFor(bool of_use) const {
    return of_use && identity_.use_row != nullptr ? *identity_.use_row : identity_.row;
  }
  /// WriteItem and WriteItemOfUse.
  int WriteNamed(const std::wstring& item_name, std::vector<NewItem> items, const std::wstring& device_key,
                 bool of_use);
  static std::wstring InitStateKey(const std::wstring& device_key);
  /// Those of `keys` that have no "DeviceInit" of this client; none when that is all of them.
  std::vector<std::wstring> WithoutInit(std::vector<std::wstring> keys);
  /// Writes the "DeviceInit" of these devices; see LogDevInitEvent.
  int LogDevInits(const std::vector<std::wstring>& keys);
  /// The keys of the devices that have a context, those that was owed included.
  std::vector<std::wstring> DescribedKeys();

  /// With context_mutex_ held. Enters the device's id, and what changed.
  void LogContextOf(const DescribedDevice& device, bool new_context_needed, Ids& ids, std::vector<Change>& changes);
  /// The context by which the device of `key` is known: the one in use, else the last in the store. False, and
  /// `context` untouched, when there is none.
  bool FindPresentContext(const std::wstring& key, DatasetContext& context) const;
  /// Another one of the device's key that describes it; see IsEarlierDescription.
  bool FindEarlierContext(const DescribedDevice& device, DatasetContext& context) const;
  DatasetContext MakeContext(const ItemData& facts) const;
  /// Whether another device context than that of the device's dataset context is in force. With context_mutex_ held.
  bool IsOfAnotherDeviceContext(const std::wstring& device_key) const;
  /// The store's result; -1 when the device has no context; kWithheld.
  int Write(const std::wstring& item_name, const std::wstring& item_id, std::vector<NewItem> items,
            const std::wstring& device_key, bool of_use = false);

  const MonitorIdentity identity_;
  std::unique_ptr<platform::Event> context_event_;  ///< Made by the constructor.
  std::mutex init_mutex_;                           ///< Serialises LogDevInitEvent; taken before context_mutex_.
  std::mutex context_mutex_;   ///< Serialises LogDatasetContext; guards what follows. Never taken under a consent.
  Ids context_ids_;            ///< By device key.
  bool context_owed_ = false;  ///< One could not be written for want of consent.
  std::atomic<bool> init_owed_ =
      false;  ///< InitialiseDevice had no consent; the next item that has it makes up for it.
};

}  // namespace TVK
