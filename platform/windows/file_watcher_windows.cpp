#include "platform/file_watcher.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <map>

#include "platform/file_watching.h"
#include "platform/windows/owner.h"
#include "platform/windows/text.h"

namespace platform {
namespace {

using windows::UniqueFile;
using windows::UniqueKernelHandle;

bool SameName(std::wstring_view a, std::wstring_view b) {
  return CompareStringOrdinal(a.data(), static_cast<int>(a.size()), b.data(), static_cast<int>(b.size()), TRUE) ==
         CSTR_EQUAL;
}

// What a watch tells of: everything in the folder, or only that folders come, go and are renamed in it.
constexpr DWORD kContent = FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_DIR_NAME | FILE_NOTIFY_CHANGE_LAST_WRITE |
                           FILE_NOTIFY_CHANGE_SIZE;
constexpr DWORD kFolderNames = FILE_NOTIFY_CHANGE_DIR_NAME;

// One watched folder: an open read of its changes.
class FolderWatch {
 public:
  static std::unique_ptr<FolderWatch> Open(const std::filesystem::path& folder, DWORD changes) {
    auto watch = std::make_unique<FolderWatch>(changes);
    watch->folder_.Reset(CreateFileW(folder.c_str(), FILE_LIST_DIRECTORY,
                                     FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                     FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED, nullptr));
    if (!watch->folder_) return nullptr;
    watch->event_.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!watch->event_ || !watch->Arm()) return nullptr;
    return watch;
  }

  explicit FolderWatch(DWORD changes) : changes_(changes) {}
  FolderWatch(const FolderWatch&) = delete;
  FolderWatch& operator=(const FolderWatch&) = delete;

  ~FolderWatch() {
    if (!armed_) return;
    // The system writes into our buffer until the read has ended.
    DWORD bytes = 0;
    CancelIoEx(folder_.get(), &read_);
    GetOverlappedResult(folder_.get(), &read_, &bytes, TRUE);
  }

  HANDLE event() const { return event_.get(); }

  std::vector<std::wstring> names;  ///< What matters in the folder.

  struct News {
    bool matters = false;  ///< One of `names` may have changed.
    bool gone = false;     ///< The folder can be watched no longer.
  };

  // Takes what the read gave, once its event is set, and reads on; no change between the two is lost.
  News Take() {
    DWORD bytes = 0;
    armed_ = false;
    if (!GetOverlappedResult(folder_.get(), &read_, &bytes, FALSE)) return {true, true};
    News news{bytes == 0 || AnyMatters(bytes), false};  // 0: more changes than the buffer holds
    if (!Arm()) news = {true, true};
    return news;
  }

 private:
  bool Arm() {
    read_ = {};
    read_.hEvent = event_.get();
    armed_ = ReadDirectoryChangesW(folder_.get(), buffer_.data(), static_cast<DWORD>(buffer_.size()), FALSE, changes_,
                                   nullptr, &read_, nullptr) != FALSE;
    return armed_;
  }

  bool AnyMatters(DWORD bytes) const {
    constexpr std::size_t kHeader = offsetof(FILE_NOTIFY_INFORMATION, FileName);
    for (std::size_t at = 0; at + kHeader <= bytes;) {
      FILE_NOTIFY_INFORMATION change;
      std::memcpy(&change, buffer_.data() + at, kHeader);
      const std::size_t room = (bytes - at - kHeader) / sizeof(wchar_t);
      const std::wstring_view name(reinterpret_cast<const wchar_t*>(buffer_.data() + at + kHeader),
                                   std::min<std::size_t>(change.FileNameLength / sizeof(wchar_t), room));
      // A program that uses the short form of a name ("POLICY~1.JSO") has it reported in that form.
      if (name.find(L'~') != std::wstring_view::npos ||
          std::any_of(names.begin(), names.end(), [&](const auto& wanted) { return SameName(wanted, name); })) {
        return true;
      }
      if (change.NextEntryOffset == 0) break;
      at += change.NextEntryOffset;
    }
    return false;
  }

  const DWORD changes_;
  UniqueFile folder_;
  UniqueKernelHandle event_;
  OVERLAPPED read_{};
  bool armed_ = false;
  alignas(DWORD) std::array<std::byte, 8192> buffer_;
};

class DirectoryFileWatcher final : public FileWatcher {
 public:
  DirectoryFileWatcher(Runtime& runtime, std::vector<std::filesystem::path> files, std::function<void()> on_change)
      : runtime_(runtime), files_(std::move(files)), on_change_(std::move(on_change)) {}

  ~DirectoryFileWatcher() override {
    if (!thread_.joinable()) return;
    SetEvent(stop_.get());
    runtime_.Join(thread_);
  }

  // Empty, or what went wrong.
  std::string Start() {
    stop_.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!stop_) return windows::LastErrorText("CreateEvent");
    PlaceWatches();
    thread_ = runtime_.StartThread("file-watch", [this] { Run(); });
    return {};
  }

 private:
  using Key = std::pair<std::filesystem::path, DWORD>;  // the folder, and what is told of it
  using Folders = std::map<Key, std::unique_ptr<FolderWatch>>;

  bool Attach(const Key& key) {
    if (folders_.contains(key)) return true;
    auto watch = FolderWatch::Open(key.first, key.second);
    const bool done = watch != nullptr;
    if (done) folders_.emplace(key, std::move(watch));
    return done;
  }

  static Key ParentOf(const std::filesystem::path& folder) { return {folder.parent_path(), kFolderNames}; }

  // Watches what is to be watched now, and nothing else; folders that are watched already stay so. `blind_` says
  // whether the system refused something.
  void PlaceWatches() {
    complete_ = true;
    blind_ = false;
    for (const auto& [key, watch] : folders_)
      watch->names.clear();
    for (const std::filesystem::path& file : files_) {
      // A watched folder keeps its watch under another name: that another one takes its place, its parent tells. One
      // whose parent may not be listed does without.
      const auto attach = [&](const std::filesystem::path& folder) {
        if (folder.has_relative_path()) Attach(ParentOf(folder));
        return Attach({folder, kContent});
      };
      const auto place = FindWatchPlace(file, attach);
      blind_ = blind_ || !place || place->blind;
      if (!place) continue;
      folders_.at({place->folder, kContent})->names.push_back(place->name.native());
      const auto parent = folders_.find(ParentOf(place->folder));
      if (parent != folders_.end()) parent->second->names.push_back(place->folder.filename().native());
      complete_ = complete_ && place->direct;
    }
    std::erase_if(folders_, [](const auto& entry) { return entry.second->names.empty(); });
  }

  void Run() {
    for (bool ending = false; !ending;) {
      try {
        ending = !FollowOne();
      } catch (...) {
        ending = !StartAnew();
      }
    }
  }

  // Waits for the next change and deals with it. False: to end.
  bool FollowOne() {
    std::vector<HANDLE> waited{stop_.get()};
    std::vector<Folders::iterator> order;
    for (auto folder = folders_.begin(); folder != folders_.end(); ++folder) {
      waited.push_back(folder->second->event());
      order.push_back(folder);
    }
    const DWORD code =
        WaitForMultipleObjects(static_cast<DWORD>(waited.size()), waited.data(), FALSE, blind_ ? kRetryMs : INFINITE);
    if (code == WAIT_TIMEOUT) {
      PlaceWatches();
      on_change_();
      return true;
    }
    if (code == WAIT_OBJECT_0 || code >= waited.size()) return false;
    const auto folder = order[code - 1];
    const FolderWatch::News news = folder->second->Take();
    const auto [path, changes] = folder->first;
    const bool moved = news.matters && changes == kFolderNames;
    for (const std::wstring& name : folder->second->names) {
      if (moved) folders_.erase({path / name, kContent});
    }
    if (news.gone) folders_.erase(folder);
    // On the way to a missing folder, a change may mean one more step; placed before the callback reads the file.
    if (news.gone || moved || (news.matters && !complete_)) PlaceWatches();
    if (news.matters) on_change_();
    return true;
  }

  // After an exception, which may have left the folders half placed. False: to end.
  bool StartAnew() {
    folders_.clear();
    while (WaitForSingleObject(stop_.get(), kRetryMs) == WAIT_TIMEOUT) {
      try {
        PlaceWatches();
        on_change_();
        return true;
      } catch (...) {
        folders_.clear();
      }
    }
    return false;
  }

  Runtime& runtime_;
  const std::vector<std::filesystem::path> files_;
  const std::function<void()> on_change_;
  UniqueKernelHandle stop_;
  // The thread's own once it runs.
  Folders folders_;       ///< At most two for each file: its folder, and the name of that.
  bool complete_ = true;  ///< Every file's own folder is watched.
  bool blind_ = false;    ///< A change may be told by nobody.
  std::thread thread_;
};

}  // namespace

std::unique_ptr<FileWatcher> FileWatcher::Watch(Runtime& runtime, std::vector<std::filesystem::path> files,
                                                std::function<void()> on_change, std::string* problem) {
  return StartFileWatcher<DirectoryFileWatcher>(runtime, std::move(files), std::move(on_change), problem);
}

}  // namespace platform
