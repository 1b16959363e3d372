// Asks drivers one after the other, and goes on to the next where one hangs.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace platform {

/// What came of asking one of several.
template <typename Answer>
struct Asked {
  std::string name;
  std::optional<Answer> answer = {};
  bool hangs = false;  ///< It has not come back, now or since an earlier round, or was not asked since others did not.
};

/// The threads that hang are left behind, with what they hold, and whom they ask is not asked again before that came
/// back. One round at a time; the rounds' threads may outlive the object.
class HangingAsks {
 public:
  /// So many that hang end a round: those that it has not come to count as hanging, too, and are asked in the next one.
  static constexpr std::size_t kMostInARound = 4;

  /// `limit`: how long one may take. A whole round takes no longer than that for kMostInARound, and its time for those
  /// that answer.
  explicit HangingAsks(std::chrono::milliseconds limit) : limit_(limit) {}

  /// Calls `ask` with each of `names`, on a thread that goes from one to the next, and gives the answers in their
  /// order. `ask` must own all that it touches. What it throws is thrown here. Throws std::system_error when the system
  /// gives no thread.
  template <typename Answer>
  std::vector<Asked<Answer>> AskEach(const std::vector<std::string>& names,
                                     const std::function<std::optional<Answer>(const std::string&)>& ask) {
    // Owned by the threads, too: each writes into its own place before it says that it is through with it.
    const auto answers = std::make_shared<std::vector<Asked<Answer>>>();
    for (const std::string& name : names)
      answers->push_back({name});
    const std::vector<bool> hang =
        Run(names, [answers, ask](std::size_t i) { (*answers)[i].answer = ask((*answers)[i].name); });
    std::vector<Asked<Answer>> told;
    for (std::size_t i = 0; i < names.size(); ++i) {
      // Of one that hangs nothing is touched but the name, which stays.
      told.push_back({names[i], hang[i] ? std::nullopt : std::move((*answers)[i].answer), hang[i]});
    }
    return told;
  }

 private:
  struct Worker;
  /// Calls `work` with each index; which of them hang.
  std::vector<bool> Run(const std::vector<std::string>& names, std::function<void(std::size_t)> work);

  const std::chrono::milliseconds limit_;
  std::vector<std::pair<std::string, std::shared_ptr<Worker>>> left_behind_;  ///< By the name at which each hangs.
};

}  // namespace platform
