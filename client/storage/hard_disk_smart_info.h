// One attribute of a drive under the name that a dataset gives it.
#pragma once

#include <string>
#include <string_view>

#include "client/storage/ata_smart.h"

namespace StorageCollector {

/// Constant.
class HardDiskSmartInfo {
 public:
  HardDiskSmartInfo(std::wstring_view name, const TVK::AtaAttribute& attribute) : name_(name), attribute_(attribute) {}

  const std::wstring& getName() const { return name_; }
  const TVK::AtaAttribute& getAttribute() const { return attribute_; }

 private:
  std::wstring name_;
  TVK::AtaAttribute attribute_;
};

}  // namespace StorageCollector
