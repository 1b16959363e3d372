// Builds SMBIOS tables for tests: structures as firmware writes them, in the forms in which they arrive.
#pragma once

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

namespace testing_support {

using Bytes = std::vector<std::uint8_t>;

inline void PutNumber(Bytes& bytes, std::size_t offset, std::uint64_t value, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i)
    bytes.at(offset + i) = static_cast<std::uint8_t>(value >> (8 * i));
}

/// One structure. Fields that do not fit into its length are left out, as firmware of an older standard does.
class Structure {
 public:
  Structure(std::uint8_t type, std::uint8_t length, std::uint16_t handle) : formatted_(length) {
    Put(0, type, 1).Put(1, length, 1).Put(2, handle, 2);
  }
  Structure& Put(std::size_t offset, std::uint64_t value, std::size_t size) {
    if (offset + size <= formatted_.size()) PutNumber(formatted_, offset, value, size);
    return *this;
  }
  Structure& Text(std::size_t offset, std::string_view text) {
    if (offset >= formatted_.size()) return *this;
    strings_.insert(strings_.end(), text.begin(), text.end());
    strings_.push_back(0);
    return Put(offset, ++count_, 1);
  }
  Bytes Build() const {
    Bytes all = formatted_;
    all.insert(all.end(), strings_.begin(), strings_.end());
    all.insert(all.end(), strings_.empty() ? 2 : 1, 0);
    return all;
  }

 private:
  Bytes formatted_;
  Bytes strings_;
  std::uint8_t count_ = 0;
};

struct ArraySpec {
  std::uint16_t handle = 0x1000;
  std::uint8_t use = 3;               // System memory.
  std::uint8_t error_correction = 3;  // None.
  std::uint64_t capacity_kb = 32u << 20;
  std::uint8_t length = 0x17;
};

inline Structure MemoryArray(const ArraySpec& spec = {}) {
  Structure array(16, spec.length, spec.handle);
  array.Put(4, 3, 1).Put(5, spec.use, 1).Put(6, spec.error_correction, 1).Put(0x0B, 0xFFFE, 2).Put(0x0D, 2, 2);
  if (spec.capacity_kb < 0x80000000) return array.Put(7, spec.capacity_kb, 4);
  return array.Put(7, 0x80000000, 4).Put(0x0F, spec.capacity_kb << 10, 8);
}

struct DeviceSpec {
  std::uint16_t handle = 0x1100;
  std::uint16_t array = 0x1000;
  std::uint16_t size = 16384;
  std::uint32_t extended_size = 0;
  std::uint8_t type = 26;  // DDR4.
  std::uint16_t speed = 2667;
  std::uint16_t clock_speed = 2400;
  std::string locator = "ChannelA-DIMM0";
  std::string bank = "BANK 0";
  std::string manufacturer = "Contoso  ";
  std::uint8_t length = 0x28;
};

inline Structure MemoryDevice(const DeviceSpec& spec = {}) {
  Structure device(17, spec.length, spec.handle);
  device.Put(4, spec.array, 2).Put(6, 0xFFFE, 2).Put(8, 64, 2).Put(0x0A, 64, 2).Put(0x0C, spec.size, 2).Put(0x0E, 9, 1);
  device.Text(0x10, spec.locator).Text(0x11, spec.bank).Put(0x12, spec.type, 1).Put(0x13, 0x80, 2);
  device.Put(0x15, spec.speed, 2).Text(0x17, spec.manufacturer).Text(0x18, "SN-0042").Put(0x1C, spec.extended_size, 4);
  return device.Put(0x20, spec.clock_speed, 2);
}

class Table {
 public:
  Table& Add(const Structure& structure) { return AddBytes(structure.Build()); }
  Table& AddBytes(const Bytes& bytes) {
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    return *this;
  }
  Table& End() { return Add(Structure(127, 4, 0xFEFE)); }
  const Bytes& bytes() const { return bytes_; }

  /// Behind the header of Windows' provider, version 3.2.
  Bytes Rsmb() const {
    Bytes all = {0, 3, 2, 0, 0, 0, 0, 0};
    PutNumber(all, 4, bytes_.size(), 4);
    all.insert(all.end(), bytes_.begin(), bytes_.end());
    return all;
  }

  static Bytes EntryPoint32(std::uint16_t length, std::uint16_t count) {
    Bytes entry(0x1F);
    std::copy_n("_SM_", 4, entry.begin());
    std::copy_n("_DMI_", 5, entry.begin() + 0x10);
    entry[5] = 0x1F;
    entry[6] = 2;
    entry[7] = 8;
    PutNumber(entry, 0x16, length, 2);
    PutNumber(entry, 0x18, 0x20, 4);
    PutNumber(entry, 0x1C, count, 2);
    entry[0x1E] = 0x28;
    entry[0x15] = Complement(entry.begin() + 0x10, entry.end());
    entry[4] = Complement(entry.begin(), entry.end());
    return entry;
  }
  static Bytes EntryPoint64(std::uint32_t maximum) {
    Bytes entry(0x18);
    std::copy_n("_SM3_", 5, entry.begin());
    entry[6] = 0x18;
    entry[7] = 3;
    entry[8] = 2;
    entry[0x0A] = 1;
    PutNumber(entry, 0x0C, maximum, 4);
    PutNumber(entry, 0x10, 0x20, 8);
    entry[5] = Complement(entry.begin(), entry.end());
    return entry;
  }

  /// As dmidecode --dump-bin writes it: the entry point, then the table at offset 0x20.
  Bytes Dump(Bytes entry_point) const {
    entry_point.resize(0x20);
    entry_point.insert(entry_point.end(), bytes_.begin(), bytes_.end());
    return entry_point;
  }
  Bytes Dump64() const { return Dump(EntryPoint64(static_cast<std::uint32_t>(bytes_.size()))); }

 private:
  static std::uint8_t Complement(Bytes::const_iterator begin, Bytes::const_iterator end) {
    return static_cast<std::uint8_t>(0u - std::accumulate(begin, end, 0u));
  }

  Bytes bytes_;
};

}  // namespace testing_support
