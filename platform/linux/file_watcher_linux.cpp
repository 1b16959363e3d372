#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <optional>
#include <set>
#include <system_error>

#include "platform/file_watcher.h"
#include "platform/file_watching.h"
#include "platform/linux/link_chain.h"
#include "platform/linux/unique_fd.h"
#include "platform/linux/wake.h"

namespace platform {
namespace {

std::string ErrnoText(const std::string& what) {
  return what + ": " + std::generic_category().message(errno);
}

class InotifyFileWatcher final : public FileWatcher {
 public:
  InotifyFileWatcher(Runtime& runtime, std::vector<std::filesystem::path> files, std::function<void()> on_change)
      : runtime_(runtime), files_(std::move(files)), on_change_(std::move(on_change)) {}

  ~InotifyFileWatcher() override {
    if (!thread_.joinable()) return;
    SignalEventFd(stop_.get());
    runtime_.Join(thread_);
  }
  InotifyFileWatcher(const InotifyFileWatcher&) = delete;
  InotifyFileWatcher& operator=(const InotifyFileWatcher&) = delete;

  // Empty, or what went wrong.
  std::string Start() {
    stop_ = UniqueFd(::eventfd(0, EFD_CLOEXEC));
    if (!stop_) return ErrnoText("eventfd");
    PlaceWatches();
    thread_ = runtime_.StartThread("file-watch", [this] { Run(); });
    return {};
  }

 private:
  // Of a folder itself; costs no wake-up for what happens in it.
  static constexpr std::uint32_t kGone = IN_DELETE_SELF | IN_MOVE_SELF;
  // Of a folder and its files: the ends of changes, not each write of one.
  static constexpr std::uint32_t kChanges =
      kGone | IN_CLOSE_WRITE | IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_ATTRIB;

  using Names = std::map<int, std::set<std::string>>;

  int Add(const std::filesystem::path& folder, std::uint32_t events) {
    return ::inotify_add_watch(inotify_.get(), folder.c_str(), events | IN_ONLYDIR);
  }

  // Watches what is to be watched now, and nothing else. A change between the look at a path and the watch on it would
  // be missed, so this is done again until it gives what was there before; `settled_` says whether it came to that,
  // `blind_` whether the system refused something.
  void PlaceWatches() {
    constexpr int kTries = 3;
    if (!inotify_) inotify_ = UniqueFd(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    settled_ = false;
    for (int i = 0; i < kTries && !settled_; ++i) {
      blind_ = false;
      std::optional<Names> names = inotify_ ? PlaceOnce() : std::nullopt;
      blind_ = blind_ || !names;
      settled_ = !names || *names == names_;  // trying on at once is of no use when the system refuses
      if (names) names_ = std::move(*names);
    }
  }

  std::optional<Names> PlaceOnce() {
    Names names;
    std::map<std::filesystem::path, int> attached;
    std::set<std::filesystem::path> ways;
    const auto attach = [&](const std::filesystem::path& folder) {
      const int watch = Add(folder, kChanges);
      if (watch >= 0) attached[folder] = watch;
      return watch >= 0;
    };
    for (const std::filesystem::path& file : files_) {
      for (const std::filesystem::path& station : LinkChain(file)) {
        const auto place = FindWatchPlace(station, attach);
        if (!place) return std::nullopt;
        blind_ = blind_ || place->blind;
        names[attached[place->folder]].insert(place->name.native());
        for (auto way = place->folder; way.has_relative_path(); way = way.parent_path())
          ways.insert(way);
      }
    }
    for (const std::filesystem::path& way : ways) {
      // The first call leaves the events of a folder whose names matter; one whose names did so once is told less now.
      int watch = Add(way, kGone | IN_MASK_ADD);
      if (watch >= 0 && !names.contains(watch)) watch = Add(way, kGone);
      if (watch >= 0) names.try_emplace(watch);
    }
    std::set<int> unneeded;
    for (const auto& [watch, unused] : names_)
      unneeded.insert(watch);
    for (const auto& [folder, watch] : attached)
      unneeded.insert(watch);
    for (const int watch : unneeded) {
      if (!names.contains(watch)) ::inotify_rm_watch(inotify_.get(), watch);
    }
    return names;
  }

  void Run() {
    bool failed = false;
    for (;;) {
      constexpr int kNotAtAll = 0;
      constexpr int kForEver = -1;
      // A descriptor that is none is passed over.
      pollfd waited[] = {{inotify_.get(), POLLIN, 0}, {stop_.get(), POLLIN, 0}};
      const int patience = failed || blind_ ? kRetryMs : settled_ ? kForEver : kNotAtAll;
      const int ready = ::poll(failed ? &waited[1] : waited, failed ? 1 : std::size(waited), patience);
      if (ready < 0) continue;  // only for a signal
      if (waited[1].revents != 0) return;
      try {
        if (!ReadEvents() && settled_ && ready > 0) continue;
        PlaceWatches();  // before the callback reads the file
        on_change_();
        failed = false;
      } catch (...) {
        failed = true;
      }
    }
  }

  // Reads what has come; whether one of the files may have changed.
  bool ReadEvents() {
    alignas(inotify_event) char buffer[4096];
    bool changed = false;
    for (;;) {
      const ssize_t length = ::read(inotify_.get(), buffer, sizeof buffer);
      if (length <= 0) return changed;
      for (ssize_t at = 0; at < length;) {
        inotify_event event;
        std::memcpy(&event, buffer + at, sizeof event);
        // The name is filled up with nulls; events of the folder itself have none.
        const std::string name = event.len > 0 ? buffer + at + sizeof event : "";
        at += static_cast<ssize_t>(sizeof event + event.len);
        const auto watch = names_.find(event.wd);
        const bool lost = (event.mask & IN_Q_OVERFLOW) != 0;
        // All that is told of a folder itself: it went, or its permissions are others.
        const bool own = watch != names_.end() && name.empty();
        changed = changed || own || lost || (watch != names_.end() && watch->second.contains(name));
      }
    }
  }

  Runtime& runtime_;
  const std::vector<std::filesystem::path> files_;
  const std::function<void()> on_change_;
  UniqueFd inotify_;
  UniqueFd stop_;  ///< An eventfd; readable: end.
  // The thread's own once it runs.
  Names names_;           ///< By watch descriptor: the names that matter in that folder; none: only the folder itself.
  bool settled_ = false;  ///< `names_` is what the paths stood for while all of it was watched.
  bool blind_ = false;    ///< A change may be told by nobody.
  std::thread thread_;
};

}  // namespace

std::unique_ptr<FileWatcher> FileWatcher::Watch(Runtime& runtime, std::vector<std::filesystem::path> files,
                                                std::function<void()> on_change, std::string* problem) {
  return StartFileWatcher<InotifyFileWatcher>(runtime, std::move(files), std::move(on_change), problem);
}

}  // namespace platform
