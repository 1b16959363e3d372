// What a report says in words, the same in a terminal and on a page. Texts are UTF-8 and hold what records hold: who
// shows them makes them harmless.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "apps/tvkctl/report/standing.h"
#include "client/report/report.h"
#include "platform/clock.h"

namespace tvkctl {

struct Sentence {
  std::string label;
  std::string text;
};

/// Of one report. Holds references: use it where the report is.
class ReportSentences {
 public:
  /// `data_folder` holds the store.
  ReportSentences(const TVK::Report& report, const Standing& standing, const std::filesystem::path& data_folder,
                  const platform::Clock& clock)
      : report_(report), standing_(standing), data_folder_(data_folder), clock_(clock) {}

  /// What leaves the machine, what is recorded, what is kept and for how long, what the machine is.
  std::vector<Sentence> Summary() const;
  /// How to look at it, to stop it and to delete it.
  std::vector<Sentence> Remedies() const;
  /// "9 hours from 2026-01-31 22:00: the PC was off".
  std::string GapText(const TVK::Gap& gap) const;
  /// The same without what ended it: of one dataset the records do not say it.
  std::string SpanText(const TVK::Gap& gap) const;
  std::string DatasetText(const TVK::DatasetReport& dataset) const;

  /// "2026-01-31 22:00", in the zone of this machine.
  std::string Time(std::int64_t seconds) const;
  /// "facts of the PC" for what has no dataset.
  static std::string NameOf(const std::string& dataset);
  /// "1 record", "2 records".
  static std::string Number(std::uint64_t count, const char* what);

 private:
  std::string Recorded() const;
  std::string Machine() const;

  const TVK::Report& report_;
  const Standing& standing_;
  const std::filesystem::path& data_folder_;
  const platform::Clock& clock_;
};

}  // namespace tvkctl
