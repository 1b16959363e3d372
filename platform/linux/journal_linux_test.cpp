// The journal as an event log: what its entries are, and that reading loses and repeats none.
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include "platform/event_log_reader.h"
#include "platform/linux/doors_linux.h"
#include "platform/linux/journal_entry.h"
#include "platform/linux/unique_fd.h"
#include "platform/local.h"
#include "testing/journal_linux.h"
#include "testing/temp_folder.h"

namespace platform {
namespace {

constexpr char kAll[] =
    "<QueryList><Query><Select Path='Application'>*</Select><Select Path='Security'>*</Select>"
    "<Select Path='Setup'>*</Select><Select Path='System'>*</Select></Query></QueryList>";
constexpr char kErrors[] =
    "<QueryList><Query><Select Path='Application'>*[System[Level=2]]</Select></Query></QueryList>";

TEST(JournalEntryTest, HasAChannelALevelAnIdAndASource) {
  struct Row {
    std::vector<std::string_view> fields;
    const char* channel;
    std::uint32_t level;
    std::uint32_t id;
    const char* provider;
  };
  const std::string_view coredump = "MESSAGE_ID=fc2e22bc6ee647b6b90729ab34a250b1";
  for (const Row& row : {
           Row{{}, "Application", 4, 0, "other"},
           Row{{"PRIORITY=0", "SYSLOG_FACILITY=1", "_COMM=logger", "_UID=0"}, "Application", 1, 0, "logger"},
           Row{{"PRIORITY=2", "_COMM=a", "SYSLOG_IDENTIFIER=Jane Doe", "_UID=0"}, "Application", 1, 0, "a"},
           Row{{"_COMM=a", "SYSLOG_IDENTIFIER=kernel", "_UID=1000"}, "Application", 4, 0, "other"},
           Row{{"SYSLOG_IDENTIFIER=systemd-pstore", "_UID=1000", "_SYSTEMD_UNIT=user@1000.service"},
               "System",
               4,
               0,
               "other"},
           Row{{coredump, "_UID=1000", "_SYSTEMD_UNIT=session-3.scope"}, "Application", 4, 0xfc2e, "other"},
           Row{{coredump, "_UID=1000", "_SYSTEMD_UNIT=systemd-coredump@3-812-0.service"},
               "Application",
               4,
               0xfc2e,
               "systemd-coredump"},
           Row{{"PRIORITY=3", "_TRANSPORT=kernel"}, "System", 2, 0, "kernel"},
           Row{{"PRIORITY=4", "SYSLOG_FACILITY=3", "MESSAGE_ID=00ff"}, "System", 3, 255, "other"},
           Row{{"PRIORITY=5", "SYSLOG_FACILITY=3", "_SYSTEMD_USER_UNIT=x"}, "Application", 4, 0, "other"},
           Row{{"PRIORITY=6", "SYSLOG_FACILITY=10", "SYSLOG_IDENTIFIER=apt"}, "Security", 4, 0, "other"},
           Row{{"PRIORITY=7", "SYSLOG_IDENTIFIER=fwupd", "_SYSTEMD_UNIT=fwupd.service"}, "Setup", 5, 0, "fwupd"},
           Row{{"PRIORITY=8", "_TRANSPORT=audit", "MESSAGE_ID=12x4"}, "Security", 4, 0, "other"},
           Row{{"SYSLOG_IDENTIFIER=systemd", "_COMM=systemd", "_UID=0", "MESSAGE_ID=abc"}, "System", 4, 0, "systemd"},
           Row{{"SYSLOG_IDENTIFIER=systemd-pstore", "_SYSTEMD_UNIT=systemd-pstore.service", "FILE=x"},
               "System",
               4,
               0,
               "systemd-pstore"},
           Row{{coredump, "SYSLOG_FACILITY=3", "PRIORITY="}, "Application", 4, 0xfc2e, "other"},
           Row{{"PRIORITY=1", "PRIORITY=7", "nonsense", "=", ""}, "Application", 1, 0, "other"},
       }) {
    const LoggedEvent event = EventOfJournal(row.fields, {});
    EXPECT_EQ(event.channel, row.channel);
    EXPECT_EQ(event.level, row.level) << row.channel;
    EXPECT_EQ(event.id, row.id) << row.channel;
    EXPECT_EQ(event.provider, row.provider);
  }
  const std::vector<std::string_view> crash = {
      "COREDUMP_CMDLINE=secret", "COREDUMP_SIGNAL=11", "MESSAGE=a=b", "_PID=7", "TID=8", "_UID=1000", "MESSAGE=c"};
  EXPECT_EQ(XmlOf(EventOfJournal(crash, WallTime(milliseconds(1)))),
            "<Event><System><Provider Name=\"other\"/><EventID>0</EventID><Level>4</Level>"
            "<TimeCreated SystemTime=\"1970-01-01T00:00:00.001Z\"/><Execution ProcessID=\"7\" ThreadID=\"8\"/>"
            "<Channel>Application</Channel></System><EventData><Data Name=\"MESSAGE\">a=b</Data>"
            "<Data Name=\"COREDUMP_SIGNAL\">11</Data></EventData></Event>");
  const std::vector<std::string_view> dump = {"FILE=Panic#1 Part1\nsecret", "MESSAGE=PStore dmesg-efi-1 moved",
                                              "_SYSTEMD_UNIT=systemd-pstore.service"};
  EXPECT_EQ(EventOfJournal(dump, {}).data.back().value, "Panic#1 Part1");
  const std::vector<std::string_view> other = {"FILE=Panic#1 Part1\nsecret", "_SYSTEMD_UNIT=editor.service"};
  EXPECT_TRUE(EventOfJournal(other, {}).data.empty());
}

constexpr uid_t kNobody = 65534;

TEST(JournalEntryTest, OfAnEntryTheFirstOfEachKnownFieldIsKept) {
  JournalFieldFilter filter;
  for (const auto& [field, takes] : {std::pair("MESSAGE=a", true),
                                     {"MESSAGE=b", false},
                                     {"PRIORITY=", true},
                                     {"PRIORITY=3", false},
                                     {"SYSLOG_IDENTIFIER=x", true},
                                     {"SYSLOG_IDENTIFIER=x", false},
                                     {"COREDUMP_PACKAGE_VERSION=1", true},
                                     {"COREDUMP_CMDLINE=secret", false},
                                     {"FILE=x", true},
                                     {"MESSAGE_ID", false},
                                     {"MESSAGE_ID=1", true},
                                     {"", false}}) {
    EXPECT_EQ(filter.Takes(field), takes) << field;
  }
}

class JournalTest : public testing::Test {
 protected:
  std::filesystem::path File(const char* name) const { return root_.path() / "var/log/journal" / name; }

  /// Everybody reaches the journal, whatever the umask of whoever runs the tests.
  void OpenToEverybody() const {
    std::filesystem::permissions(root_.path(), std::filesystem::perms::all);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root_.path()))
      std::filesystem::permissions(entry, std::filesystem::perms::all);
  }

  EventLogReaderOpening Open(const std::string& bookmark = {}, const char* query = kAll) {
    log_ = MakeEventLog(Sysroot(root_.path()), runtime_->clock());
    return log_->OpenReader(
        *runtime_,
        {.query = query, .value_paths = {"Event/System/Provider/@Name", "Event/System/Level"}, .bookmark = bookmark});
  }

  /// The sources of the events that `reader` gives until it has no more.
  std::vector<std::string> Drain(EventLogReader& reader) {
    std::vector<std::string> sources;
    for (EventLogBatch batch{.more = true}; batch.more;) {
      batch = reader.Take(2);
      for (const EventLogNotice& notice : batch.notices)
        notices_.push_back(notice);
      for (const EventLogEvent& event : batch.events) {
        sources.push_back(std::get<std::string>(event.record.values.at(0)));
        bookmarks_.push_back(event.bookmark);
      }
      bookmark_ = batch.bookmark;
    }
    return sources;
  }

  static std::string Entry(const std::string& source, int priority = 3) {
    return "_SYSTEMD_UNIT=" + source + ".service\nPRIORITY=" + std::to_string(priority);
  }

  const TempFolder root_;
  const std::unique_ptr<Runtime> runtime_ = MakeRealRuntime({});
  std::unique_ptr<EventLog> log_;
  std::vector<EventLogNotice> notices_;
  std::vector<std::string> bookmarks_;
  std::string bookmark_;
};

using Sources = std::vector<std::string>;

TEST_F(JournalTest, EveryBookmarkGoesOnBehindItsEvent) {
  JournalWriter journal(File("a.journal"));
  Sources all;
  for (const char* const source : {"a", "b", "c", "d", "e"}) {
    journal.Add(Entry(source));
    all.emplace_back(source);
  }
  journal.Write();
  const auto opening = Open();
  ASSERT_NE(opening.reader, nullptr);
  EXPECT_EQ(runtime_->Wait(opening.reader->news(), milliseconds(0)), 0u);
  EXPECT_EQ(Drain(*opening.reader), all);
  EXPECT_EQ(bookmark_, bookmarks_.back());
  const auto bookmarks = bookmarks_;
  for (std::size_t i = 0; i < all.size(); ++i) {
    EXPECT_EQ(Drain(*Open(bookmarks[i]).reader), Sources(all.begin() + static_cast<std::ptrdiff_t>(i) + 1, all.end()));
  }
  EXPECT_EQ(notices_, std::vector<EventLogNotice>());
  EXPECT_EQ(Open({}, kAll).reader->Take(1).events.at(0).record.xml.substr(0, 47),
            "<Event><System><Provider Name=\"a\"/><EventID>0</");
}

TEST_F(JournalTest, OldEventsAreLeftOutByTheirAgeAndTheRestByTheQuery) {
  JournalWriter journal(File("a.journal"));
  journal.Add(Entry("old"));
  journal.Add(Entry("warning", 4));
  journal.Add(Entry("error"));
  journal.Add(Entry("another", 4));
  journal.Write();
  EXPECT_EQ(Drain(*Open({}, kErrors).reader), (Sources{"old", "error"}));
  EXPECT_EQ(Drain(*Open(bookmark_, kAll).reader), Sources()) << "what nobody wanted was looked at, too";
  const auto age = (runtime_->clock().Now() - WallTime(std::chrono::seconds(1'767'222'001))).count();
  const std::string recent =
      "<QueryList><Query><Select Path='Application'>*[System[TimeCreated[timediff(@SystemTime) &lt;= " +
      std::to_string(age + 500) + "]]]</Select></Query></QueryList>";
  EXPECT_EQ(Drain(*Open({}, recent.c_str()).reader), (Sources{"warning", "error", "another"}));
}

TEST_F(JournalTest, WhatIsLoggedIsTakenWithItsNews) {
  JournalWriter journal(File("a.journal"));
  constexpr std::size_t kMany = 1100;  // the journal is opened anew behind so many
  for (std::size_t i = 0; i < kMany; ++i)
    journal.Add(Entry("a"));
  journal.Write();
  const auto opening = Open();
  Waitable& news = opening.reader->news();
  constexpr milliseconds kPatience{20'000};
  EXPECT_EQ(Drain(*opening.reader), Sources(kMany, "a"));
  EXPECT_EQ(runtime_->Wait(news, milliseconds(0)), kWaitTimeout) << "nothing came";
  for (const char* const source : {"b", "c"}) {
    journal.Add(Entry(source));
    journal.Write();
    Sources sources;
    while (sources.empty() && runtime_->Wait(news, kPatience) == 0)
      sources = Drain(*opening.reader);
    EXPECT_EQ(sources, Sources{source});
  }
  JournalWriter rotated(File("b.journal"), kMany + 2);
  rotated.Add(Entry("d"));
  rotated.Write();
  std::filesystem::remove(File("a.journal"));
  Sources sources;
  while (sources.empty() && runtime_->Wait(news, kPatience) == 0)
    sources = Drain(*opening.reader);
  EXPECT_EQ(sources, Sources{"d"});
}

TEST_F(JournalTest, WhereNothingCanBeWatchedWhatThereIsIsTakenAndTheRestIsForAnotherReader) {
  if (::geteuid() != 0) return;  // only root can use up what another account may watch
  JournalWriter journal(File("a.journal"));
  journal.Add(Entry("a"));
  journal.Write();
  OpenToEverybody();
  ASSERT_EQ(::seteuid(kNobody), 0);
  std::vector<UniqueFd> watches;
  do {
    watches.emplace_back(::inotify_init1(IN_CLOEXEC));
  } while (watches.back());
  const auto opening = Open();
  const EventLogBatch batch = opening.reader->Take(9);
  watches.clear();
  ASSERT_EQ(::seteuid(0), 0);
  EXPECT_EQ(batch.events.size(), 1u);
  EXPECT_EQ(batch.notices, (std::vector<EventLogNotice>{{.trouble = EventLogTrouble::kFailed, .error = EMFILE}}));
  EXPECT_EQ(runtime_->Wait(opening.reader->news(), milliseconds(0)), kWaitTimeout) << "no news without end";
}

TEST_F(JournalTest, ABookmarkWhoseEventIsGoneIsAGap) {
  JournalWriter first(File("a.journal"));
  JournalWriter second(File("b.journal"));
  for (const char* const source : {"a", "b", "c", "d"}) {
    first.Add(Entry(source));
    second.Add(Entry(source));
  }
  first.Write();
  Drain(*Open().reader);
  std::filesystem::remove(File("a.journal"));
  const EventLogNotice gap{.trouble = EventLogTrouble::kGap};
  const auto emptied = Open(bookmarks_[1]);
  EXPECT_EQ(emptied.reader->Take(9).notices.back(), gap);
  second.Write();
  EXPECT_EQ(Drain(*emptied.reader), (Sources{"c", "d"})) << "copies of the entries elsewhere are those entries";
  EXPECT_EQ(Drain(*Open(bookmarks_[1]).reader), (Sources{"c", "d"}));
  EXPECT_TRUE(notices_.empty()) << "told once";
  EXPECT_EQ(Drain(*Open("no bookmark").reader), (Sources{"a", "b", "c", "d"}));
  EXPECT_EQ(notices_, std::vector<EventLogNotice>{gap});
}

TEST_F(JournalTest, WithoutAJournalOrTheRightToItThatIsTold) {
  EXPECT_EQ(Open({}, "*").failure, EventLogFailure::kInvalidQuery);
  EXPECT_EQ(Open().failure, EventLogFailure::kChannelNotFound) << "it may come";
  EXPECT_EQ(log_->ReadStatus("System").failure, EventLogFailure::kNotSupported);
  std::filesystem::create_directories(File(""));
  EXPECT_EQ(Drain(*Open().reader), Sources());
  EXPECT_EQ(notices_, std::vector<EventLogNotice>{{.trouble = EventLogTrouble::kChannelNotFound}});
  JournalWriter journal(File("a.journal"));
  journal.Add(Entry("a"));
  journal.Write();
  Open();
  const EventLogStatus status = log_->ReadStatus("System");
  EXPECT_GT(status.bytes, 4096u);
  EXPECT_EQ(status.oldest, WallTime(std::chrono::seconds(1'767'222'000)));
  if (::geteuid() != 0) return;  // only root can become somebody without rights
  OpenToEverybody();
  std::filesystem::permissions(File("a.journal"), std::filesystem::perms::owner_all);
  ASSERT_EQ(::seteuid(kNobody), 0);
  notices_.clear();
  const Sources sources = Drain(*Open().reader);
  const EventLogStatus refused = log_->ReadStatus("System");
  ASSERT_EQ(::seteuid(0), 0);
  EXPECT_EQ(sources, Sources());
  EXPECT_EQ(notices_, std::vector<EventLogNotice>{{.trouble = EventLogTrouble::kAccessRefused}});
  EXPECT_EQ(refused.failure, EventLogFailure::kQuery);
}

}  // namespace
}  // namespace platform
