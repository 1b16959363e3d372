#include "framework/session_dataset.h"

#include <gtest/gtest.h>

#include "client/store/failing_disk.h"
#include "testing/monitor_world.h"

namespace TVK {
namespace {

constexpr DatasetRow kRow = DatasetRowNamed(L"DisplayEvent");
constexpr wchar_t kItem[] = L"Seen";
const std::map<std::wstring, std::wstring> kItems = {{kItem, L"22222222-0000-4000-8000-000000000002"}};
const std::set<std::wstring> kKeys = {L"Model"};

std::vector<ObservedDevice> Devices(int first, int count) {
  std::vector<ObservedDevice> devices;
  for (int i = first; i < first + count; ++i)
    devices.push_back({std::to_wstring(i), {{L"Model", L"X"}}});
  return devices;
}

/// A consent that ends after so many questions.
class EndingConsent final : public Consent {
 public:
  bool Admits(const DatasetRow& /*row*/) override { return left_ > 0 && left_-- > 0; }
  bool WriteIfAdmitted(const DatasetRow& row, const std::function<void()>& write) override {
    if (!Admits(row)) return false;
    write();
    return true;
  }
  void Give(int questions) { left_ = questions; }

 private:
  int left_ = 0;
};

class SessionDatasetTest : public testing::Test {
 protected:
  void NextLife() {
    dataset_.reset();
    life_.reset();
    life_.emplace(world_);
    dataset_.emplace(life_->services(), kRow, kItems, kKeys);
  }

  FailingDisk disk_;
  MonitorWorld world_;
  std::optional<ServiceLife> life_{std::in_place, world_};
  std::optional<SessionDataset> dataset_{std::in_place, life_->services(), kRow, kItems, kKeys};
};

TEST_F(SessionDatasetTest, OneDeviceTooManyTakesThePlaceOfTheOneThatWasDescribedLongestAgo) {
  constexpr int kMost = SessionDataset::kMostDevices;
  // What was not known before it gets a context and a "DeviceInit" of its own, though it looks like all others.
  const auto take = [&](int first, int count, std::size_t fresh) {
    SCOPED_TRACE(first);
    const std::size_t contexts = life_->DatasetContexts().size();
    const std::size_t inits = life_->Items(L"DeviceInit").size();
    EXPECT_EQ(dataset_->TakeDevices(Devices(first, count), false), 0);
    EXPECT_EQ(dataset_->TakeDeviceInit(), 0);
    EXPECT_EQ(life_->DatasetContexts().size(), contexts + fresh);
    EXPECT_EQ(life_->Items(L"DeviceInit").size(), inits + fresh);
    EXPECT_EQ(dataset_->TakeItem(kItem, {}, std::to_wstring(first)), 0);
  };
  EXPECT_EQ(dataset_->TakeDevices(Devices(0, kMost + 1), false), SessionRecorder::kRefused) << "at once";
  take(0, kMost, kMost);
  take(0, 1, 0);
  NextLife();
  take(kMost, 1, 1);
  EXPECT_EQ(dataset_->TakeItem(kItem, {}, L"1"), SessionRecorder::kNotDescribed) << "whose place was taken";
  take(0, 1, 0);
  NextLife();
  take(1, 1, 1);
  for (int i = 3; i < kMost; ++i)
    take(i, 1, 0);
  take(kMost, 1, 0);
  DatasetContext last;
  EXPECT_EQ(life_->store.GetLastDatasetContextOfDevice(std::wstring(kRow.id), std::to_wstring(kMost), last),
            kStoreNotFound)
      << "the store keeps no more";
}

TEST_F(SessionDatasetTest, AServiceThatEndsInTheMiddleTakesNoDeviceForTheOneThatHadItsPlace) {
  constexpr int kMost = SessionDataset::kMostDevices;
  ASSERT_EQ(dataset_->TakeDevices(Devices(0, kMost), false), 0);
  bool failed = true;
  for (int write = 1; failed; ++write) {
    SCOPED_TRACE(write);
    const auto device = Devices(kMost + write, 1);
    const std::size_t before = life_->DatasetContexts().size();
    disk_.FailAt(write, SQLITE_FULL, true);
    failed = dataset_->TakeDevices(device, false) != 0;
    disk_.FailAt(0, 0, false);
    const std::size_t written = life_->DatasetContexts().size() - before;
    NextLife();
    EXPECT_EQ(dataset_->TakeDevices(device, false), 0);
    EXPECT_GE(written + life_->DatasetContexts().size(), 1u) << "it has one of its own";
  }
}

TEST_F(SessionDatasetTest, AContextIsToldAsDurableOnlyWhenItIs) {
  ASSERT_EQ(dataset_->TakeDevices(Devices(0, 2), false), 0);
  std::vector<ObservedDevice> changed = Devices(0, 1);
  changed.front().facts[L"Model"] = L"Y";
  disk_.FailAt(1, SQLITE_FULL, true);
  EXPECT_EQ(dataset_->TakeDevices(changed, false), SQLITE_FULL);
  EXPECT_EQ(dataset_->TakeDevices(changed, false), SQLITE_FULL) << "told again";
  disk_.FailAt(0, 0, false);
  EXPECT_EQ(dataset_->TakeDevices(changed, false), 0);
  EXPECT_EQ(life_->DatasetContexts().back().item_data(), changed.front().facts);
}

TEST_F(SessionDatasetTest, WithoutConsentNothingIsHeldAndNothingIsToldAsWritten) {
  EndingConsent consent;
  const MonitorServices& all = life_->services();
  const MonitorServices services{all.runtime,     all.machine,    all.store,     all.config, all.machine_information,
                                 all.tvk_info,    all.hard_disks, all.batteries, all.news,   all.manager,
                                 all.second_tick, consent};
  SessionDataset dataset(services, kRow, kItems, kKeys);
  // Wherever in the operation it ends.
  for (int questions = 0; questions < 3; ++questions) {
    consent.Give(questions);
    EXPECT_EQ(dataset.TakeDevices(Devices(questions, 1), false), DatasetMonitor::kWithheld) << questions;
    consent.Give(100);
    EXPECT_EQ(dataset.TakeItem(kItem, {}, std::to_wstring(questions)), SessionRecorder::kNotDescribed) << questions;
    EXPECT_EQ(dataset.TakeDeviceInit(), SessionRecorder::kNotDescribed) << questions;
  }
  EXPECT_TRUE(life_->DatasetContexts().empty());
  ASSERT_EQ(dataset.TakeDevices(Devices(0, 1), false), 0);
  for (int questions = 0; questions < 2; ++questions) {
    consent.Give(questions);
    EXPECT_EQ(dataset.TakeDeviceInit(), DatasetMonitor::kWithheld) << questions;
    consent.Give(questions);
    EXPECT_EQ(dataset.TakeItem(kItem, {}, L"0"), DatasetMonitor::kWithheld) << questions;
  }
  EXPECT_TRUE(life_->Items().empty());
}

TEST_F(SessionDatasetTest, SaysNothingButWhatItIsFor) {
  EXPECT_EQ(dataset_->TakeDevices({{L"A", {{L"Model", L"X"}, {L"Diary", L"x"}}}}, false), SessionRecorder::kRefused);
  ASSERT_EQ(dataset_->TakeDevices(Devices(0, 1), false), 0);
  EXPECT_EQ(dataset_->TakeItem(kItem, {{L"Diary", L"x"}}, L"0"), SessionRecorder::kRefused);
  EXPECT_EQ(dataset_->TakeItem(L"Invented", {}, L"0"), SessionRecorder::kNotDescribed);
  EXPECT_EQ(dataset_->TakeItem(kItem, {{L"Model", L"x"}}, L"0"), 0);
}

}  // namespace
}  // namespace TVK
