// What a program of a user's session gives to the service, which alone writes records.
#pragma once

#include <string>
#include <vector>

#include "tvk/records.h"

namespace TVK {

/// One thing that a dataset of the user's session describes.
struct ObservedDevice {
  std::wstring key;  ///< Tells the devices of the dataset apart: a hash, never a serial number in clear.
  ItemData facts;    ///< What its dataset context says of it.

  bool operator==(const ObservedDevice&) const = default;
};

/// Ids, times, contexts and consent are the service's: what is given here is what was seen. Any thread may call it.
///
/// Every operation returns 0 when what was given is durable in the service's store or was there already, else the
/// reason: the store's result, DatasetMonitor's (-1: no such item, or a device that was not described; -2: withheld for
/// want of consent), kRefused or kChannelFailed. What failed was logged; nothing is kept for later.
class SessionRecorder {
 public:
  /// The service is not there, has no room for another caller, or refused this one.
  static constexpr int kChannelFailed = -3;
  /// DatasetMonitor's: no such item, or a device that was not described.
  static constexpr int kNotDescribed = -1;
  /// No dataset of the session, or more than such a dataset says: a key that it does not have, one device too many.
  static constexpr int kRefused = -4;

  virtual ~SessionRecorder() = default;

  /// The devices of the dataset as they are now, in place of those told before. `new_context_needed`: each gets a new
  /// dataset context, also where nothing changed.
  virtual int LogDatasetContext(const std::wstring& dataset_id, const std::vector<ObservedDevice>& devices,
                                bool new_context_needed) = 0;
  /// A "DeviceInit" for each of the dataset's devices that has none under the device context in force.
  virtual int LogDevInitEvent(const std::wstring& dataset_id) = 0;
  /// An item event of a described device.
  virtual int WriteItem(const std::wstring& dataset_id, const std::wstring& item_name, const ItemData& data,
                        const std::wstring& device_key) = 0;
};

}  // namespace TVK
