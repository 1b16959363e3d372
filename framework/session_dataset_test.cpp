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
  FailingDisk disk_;
  MonitorWorld world_;
  std::optional<ServiceLife> life_{std::in_place, world_};
  std::optional<SessionDataset> dataset_{std::in_place, life_->services(), kRow, kItems, kKeys};
};

TEST_F(SessionDatasetTest, HasNoMoreDevicesThanTheStoreIsToKeep) {
  constexpr int kMost = SessionDataset::kMostDevices;
  EXPECT_EQ(dataset_->TakeDevices(Devices(0, kMost - 1), false), 0);
  for (const bool next_life : {false, true}) {
    if (next_life) {
      dataset_.reset();
      life_.reset();
      life_.emplace(world_);
      dataset_.emplace(life_->services(), kRow, kItems, kKeys);
    }
    EXPECT_EQ(dataset_->TakeDevices(Devices(kMost - 2, 3), false), SessionRecorder::kRefused);
    EXPECT_EQ(dataset_->TakeItem(kItem, {}, std::to_wstring(kMost - 1)), 0) << "the last that there is room for";
    EXPECT_EQ(dataset_->TakeItem(kItem, {}, std::to_wstring(kMost)), SessionRecorder::kNotDescribed);
    EXPECT_EQ(dataset_->TakeDevices(Devices(0, kMost), false), 0) << "those that are known already";
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
