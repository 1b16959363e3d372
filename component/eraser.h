// Deletes what the component keeps of its machine, for good, and does not stop halfway.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "client/log/log.h"
#include "client/store/erasure.h"
#include "client/store/event_data_logging.h"
#include "platform/runtime.h"

namespace TVK {

struct ErasurePlaces {
  std::filesystem::path data_folder;  ///< Of the store, what was set aside of it, and the copies of the policies.
  std::filesystem::path log_folder;
};

/// Files beside the store, links left out.
struct ErasableFiles {
  std::vector<std::filesystem::path> to_go;
  std::vector<std::filesystem::path> that_stay;  ///< Because they were written to since the date of the erasure.
};

/// The files that an erasure takes: stores that were set aside, which hold records of every dataset; of a dataset its
/// log, of all datasets the service's logs but the one of erasures, and the copies of the last good policies. Where the
/// erasure has a date, only files that were last written before it. Without those that cannot be listed.
ErasableFiles ListErasableFiles(const ErasurePlaces& places, const Erasure& erasure);

/// What an erasure did.
struct ErasureReceipt {
  std::string problem;  ///< Why it is not complete; empty: it is.
  std::uint64_t records = 0;
  std::uint64_t files = 0;
};

/// As a JSON object, for the local channel; nothing when `json` is none.
std::string ToJson(const ErasureReceipt& receipt);
std::optional<ErasureReceipt> ReceiptFromJson(std::string_view json);

/// An erasure that was asked for: what of it stands on the disk until it is complete.
struct ErasureIntention {
  Erasure erasure;                     ///< With what was there when it was asked for: what is written later stays.
  std::vector<std::string> set_aside;  ///< Names of the stores that had been set aside by then.
};

/// What is to be erased stands on the disk ("erasure.json" in the data folder) before the first thing is deleted and
/// until the last one is, so that what a kill or a failure kept from its end is done later. Any thread.
class Eraser {
 public:
  /// Whether what could not be completed is tried again while the object lives, by a thread of its own, or is left to
  /// the next start.
  enum class Rest { kTriedAgain, kLeft };
  /// How long after a failure: the first time, and at the most.
  static constexpr std::chrono::milliseconds kFirstPause{5000};
  static constexpr std::chrono::milliseconds kLongestPause{600'000};

  /// `store`, null where there is none, and `runtime` must outlive the object. Opens "Erasure.log", which has a receipt
  /// of each erasure.
  Eraser(platform::Runtime& runtime, EventDataLogging* store, ErasurePlaces places, Rest rest);
  ~Eraser();
  Eraser(const Eraser&) = delete;
  Eraser& operator=(const Eraser&) = delete;

  /// Deletes what is there now and answers; see Erasure, whose bounds it sets itself. Earlier ones that are not
  /// complete are gone on with first. Nothing is deleted where the problem says so.
  ErasureReceipt Erase(const Erasure& erasure);

  /// Does what earlier erasures left, if they did. To be called at the start, before anything is written. Whether
  /// nothing is left.
  bool Finish();

 private:
  using Intentions = std::vector<ErasureIntention>;

  /// Nothing, and why, where what stands there cannot be told.
  std::optional<Intentions> ReadIntentions(std::string& problem) const;
  std::string WriteIntentions(const Intentions& intentions) const;
  /// The receipt of the last one. Keeps on the disk those that are not complete, and has them tried again.
  ErasureReceipt RunAll(const Intentions& intentions);
  ErasureReceipt Run(const ErasureIntention& intention);
  std::vector<std::filesystem::path> FilesOf(const ErasureIntention& intention) const;
  void TryAgain();
  std::filesystem::path file() const { return places_.data_folder / "erasure.json"; }

  platform::Runtime& runtime_;
  EventDataLogging* const store_;
  const ErasurePlaces places_;
  const Rest rest_;
  Log log_;
  const std::unique_ptr<platform::Event> stop_;   ///< Manual-reset.
  const std::unique_ptr<platform::Event> again_;  ///< Auto-reset; something is left.
  std::mutex mutex_;                              ///< Held for a whole erasure; guards what follows and the file.
  std::thread thread_;                            ///< Since something was left for the first time.
};

}  // namespace TVK
