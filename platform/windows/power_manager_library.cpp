#include "platform/windows/power_manager_library.h"

#include <algorithm>
#include <cstddef>
#include <memory>

#include "platform/little_endian.h"
#include "platform/windows/no_error_windows.h"
#include "platform/windows/registry.h"
#include "platform/windows/system_folders.h"
#include "platform/windows/text.h"
#include "platform/windows/trusted_file.h"

namespace platform::windows {
namespace {

constexpr wchar_t kRegistryKey[] = L"SOFTWARE\\Xelvra\\PWRMGRV";
constexpr wchar_t kRegistryValue[] = L"Path";
constexpr std::wstring_view kLibrary = L"\\PWMIF64V.DLL";
constexpr std::wstring_view kFolders[] = {L"\\Xelvra\\PowerMgr",
                                          L"\\Xelvra\\HubAgent\\Plugins\\OrbitPowerPackage\\x86"};

/// A block for foreign code to fill, with as much behind it as a longer one of another version would take.
class GuardedBlock {
 public:
  explicit GuardedBlock(std::size_t size) : size_(size) {
    std::fill_n(memory_->begin(), size, std::uint8_t{0});
    std::fill(memory_->begin() + static_cast<std::ptrdiff_t>(size), memory_->end(), kGuard);
  }

  void* data() { return memory_->data(); }
  std::vector<std::uint8_t> bytes() const { return {memory_->begin(), memory_->begin() + End()}; }
  bool intact() const {
    return std::all_of(memory_->begin() + End(), memory_->end(), [](std::uint8_t byte) { return byte == kGuard; });
  }

 private:
  static constexpr std::uint8_t kGuard = 0xA5;
  static constexpr std::size_t kMemory = 4096;

  std::ptrdiff_t End() const { return static_cast<std::ptrdiff_t>(size_); }

  const std::size_t size_;
  struct alignas(16) Memory : std::array<std::uint8_t, kMemory> {};
  const std::unique_ptr<Memory> memory_ = std::make_unique<Memory>();
};

template <typename Call>
Call Find(HMODULE library, const char* name) {
  return reinterpret_cast<Call>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

}  // namespace

std::vector<std::filesystem::path> PowerManagerLibraryPlaces(
    std::wstring_view registered, const std::vector<std::filesystem::path>& program_folders) {
  std::vector<std::filesystem::path> places;
  const auto add = [&](std::wstring folder) { places.emplace_back(folder.append(kLibrary)); };
  while (registered.ends_with(L'\\') || registered.ends_with(L'/'))
    registered.remove_suffix(1);
  if (!registered.empty()) {
    std::wstring folder(registered);
    std::ranges::replace(folder, L'/', L'\\');
    add(std::move(folder));
  }
  for (const std::wstring_view folder : kFolders) {
    for (const std::filesystem::path& base : program_folders)
      add(base.native() + std::wstring(folder));
  }
  return places;
}

bool PowerManagerLibrary::Load() {
  if (library_ != nullptr) return !damaging_;
  const std::wstring registered = WideFromUtf8(RegistryText(HKEY_LOCAL_MACHINE, kRegistryKey, kRegistryValue));
  for (const std::filesystem::path& place : PowerManagerLibraryPlaces(registered, ProgramFolders())) {
    const std::filesystem::path file = FindTrustedFile(place);
    if (file.empty()) continue;
    const NoErrorWindows quiet;
    // What it needs itself comes from its own folder and the system's, and from nowhere else.
    library_ = LoadLibraryExW(file.c_str(), nullptr, LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (library_ == nullptr) continue;
    read_status_ = Find<StatusCall>(library_, "SM_GetSmartBatteryStatusEx");
    read_firmware_ = Find<FirmwareCall>(library_, "SM_GetFirmwareInformation");
    return true;
  }
  return false;
}

std::optional<SmartBatteryAnswer> PowerManagerLibrary::ReadSmartBattery(std::uint32_t battery) {
  const std::lock_guard lock(mutex_);
  if (!Load() || read_status_ == nullptr) return std::nullopt;
  GuardedBlock status(PowerManager::kBlockBytes);
  GuardedBlock information(PowerManager::kBlockBytes);
  const std::uint32_t result = read_status_(battery, status.data(), information.data());
  damaging_ = !status.intact() || !information.intact();
  if (damaging_) return std::nullopt;
  return SmartBatteryAnswer{result, status.bytes(), information.bytes()};
}

std::optional<std::array<std::uint16_t, 4>> PowerManagerLibrary::ReadFirmwareVersion(std::uint32_t battery) {
  const std::lock_guard lock(mutex_);
  if (!Load() || read_firmware_ == nullptr) return std::nullopt;
  std::array<std::uint16_t, 4> version{};
  GuardedBlock words(sizeof(version));
  const std::uint32_t result = read_firmware_(battery, words.data());
  damaging_ = !words.intact();
  if (damaging_ || result != 1) return std::nullopt;
  const std::vector<std::uint8_t> bytes = words.bytes();
  for (std::size_t i = 0; i < version.size(); ++i)
    version[i] = LittleEndianAt<std::uint16_t>(bytes, i * sizeof(version[i]));
  return version;
}

}  // namespace platform::windows
