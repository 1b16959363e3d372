// The problems of one document while it is read and checked. One thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace TVK {

/// One thing that is wrong with a policy document.
struct PolicyProblem {
  /// Where: "datasets[3].settings.ReadUsageInterval"; empty for the document as a whole, "line 3, column 7" for text
  /// that is no JSON.
  std::string path;
  std::string message;  ///< What, in one short sentence without the path.
  /// True: the document cannot be used at all. False: it can, without the thing at `path`.
  bool fatal = true;
};

class ProblemList {
 public:
  /// What is about the document as a whole, and comes behind the rest.
  static constexpr std::ptrdiff_t kBehind = PTRDIFF_MAX;

  /// `offset`: where in the text, for the order. Path and message may hold anything that the document holds.
  void Add(std::ptrdiff_t offset, std::string_view path, std::string_view message, bool fatal);
  bool HasFatal() const { return has_fatal_; }
  std::size_t count() const { return placed_.size(); }

  /// The problems in the order of the document, at most 100 and then one that counts the rest. Texts are fit to be
  /// printed: well-formed UTF-8 without control characters. Once.
  std::vector<PolicyProblem> Take();

 private:
  struct Placed {
    std::ptrdiff_t offset = 0;
    PolicyProblem problem;
  };
  std::vector<Placed> placed_;
  bool has_fatal_ = false;
};

/// The first `limit` bytes of `text` at most, cut between characters and then marked with "...".
std::string Clip(std::string_view text, std::size_t limit = 60);

}  // namespace TVK
