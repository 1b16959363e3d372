// Processor counters as they are read through the system's own functions, which a library beside this program stands in
// for.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/local.h"
#include "platform/processors.h"
#include "platform/windows/sys.h"
// After the system's basic header.
#include <pdhmsg.h>

#include "platform/windows/pdh_stand_in.h"

namespace platform::windows {
namespace {

using ::testing::ElementsAreArray;

constexpr wchar_t kInformation[] = L"\\Processor Information(";
constexpr wchar_t kProcessor[] = L"\\Processor(";
constexpr wchar_t kUtility[] = L"\\% Processor Utility";
constexpr wchar_t kTime[] = L"\\% Processor Time";

class ProcessorLoadTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE(get_script_, nullptr) << "the system's own library was loaded";
    script_ = get_script_();
    *script_ = {};
    script_->value = 42;
    script_->instances = 3;
  }
  void TearDown() override {
    opening_.reader.reset();
    EXPECT_EQ(script_->open_queries, 0) << "every query is closed";
  }

  std::optional<std::int32_t> Sample() { return opening_.reader->Sample(); }

  const pdh_stand_in::GetScript get_script_ = reinterpret_cast<pdh_stand_in::GetScript>(
      reinterpret_cast<void*>(GetProcAddress(LoadLibraryW(L"pdh.dll"), "Script")));
  const std::unique_ptr<Runtime> runtime_ = MakeRealRuntime({});
  const std::unique_ptr<Machine> machine_ = OpenLocalMachine({}, runtime_->clock());
  pdh_stand_in::Script* script_ = nullptr;
  ProcessorLoadOpening opening_;
};

TEST_F(ProcessorLoadTest, CountersThatKnowAllProcessorsAreAskedFirst) {
  const std::wstring utility = L"\\Processor Information(*)\\% Processor Utility";
  const std::wstring time = L"\\Processor Information(_Total)\\% Processor Time";
  const std::wstring old_time = L"\\Processor(_Total)\\% Processor Time";
  struct Row {
    const wchar_t* set;
    const wchar_t* counter;
    bool utility;  // is asked for
    std::vector<std::wstring> asked;
    bool opened;
  };
  for (const Row& row : {
           Row{kInformation, kUtility, true, {utility}, true},
           Row{kInformation, kTime, true, {utility}, false},
           Row{kInformation, kTime, false, {time}, true},
           Row{kProcessor, kTime, false, {time, old_time}, true},
           Row{kProcessor, kUtility, false, {time, old_time}, false},
       }) {
    SCOPED_TRACE(std::wstring(row.set) + row.counter);
    script_->asked_count = 0;
    script_->counters[0] = {row.set, row.counter};
    opening_ = row.utility ? machine_->processors().OpenUtility() : machine_->processors().OpenTime();
    EXPECT_EQ(opening_.reader != nullptr, row.opened);
    EXPECT_EQ(opening_.error, row.opened ? 0 : std::int64_t{PDH_CSTATUS_NO_COUNTER});
    EXPECT_THAT(std::vector<std::wstring>(script_->asked, script_->asked + script_->asked_count),
                ElementsAreArray(row.asked));
    if (row.opened) {
      EXPECT_EQ(Sample(), 42);
    }
  }
}

TEST_F(ProcessorLoadTest, WhatCannotBeOpenedOrReadIsEmptyUntilItCan) {
  for (const bool utility : {true, false}) {
    SCOPED_TRACE(utility);
    const auto open = [&] {
      return utility ? machine_->processors().OpenUtility() : machine_->processors().OpenTime();
    };
    script_->counters[0] = {};
    EXPECT_FALSE(open().reader);
    script_->counters[0] = {kInformation, utility ? kUtility : kTime};
    script_->open_status = static_cast<LONG>(PDH_MEMORY_ALLOCATION_FAILURE);
    EXPECT_EQ(open().error, std::int64_t{PDH_MEMORY_ALLOCATION_FAILURE});
    script_->open_status = ERROR_SUCCESS;
    // The reading at the opening fails: the first sample has nothing to be compared with.
    script_->collect_status = static_cast<LONG>(PDH_NO_DATA);
    opening_ = open();
    ASSERT_TRUE(opening_.reader);
    EXPECT_EQ(Sample(), std::nullopt);
    script_->collect_status = ERROR_SUCCESS;
    EXPECT_EQ(Sample(), std::nullopt);
    EXPECT_EQ(Sample(), 42);
    for (const auto& [status, state, sample] : {std::tuple(DWORD{ERROR_SUCCESS}, PDH_CSTATUS_VALID_DATA, true),
                                                {ERROR_SUCCESS, PDH_CSTATUS_NEW_DATA, true},
                                                {ERROR_SUCCESS, PDH_CSTATUS_INVALID_DATA, false},
                                                {ERROR_SUCCESS, PDH_CSTATUS_NO_INSTANCE, false},
                                                {PDH_CALC_NEGATIVE_DENOMINATOR, PDH_CSTATUS_VALID_DATA, false}}) {
      script_->value_status = static_cast<LONG>(status);
      script_->state = static_cast<DWORD>(state);
      EXPECT_EQ(Sample().has_value(), sample) << status << " " << state;
    }
    script_->value_status = ERROR_SUCCESS;
    script_->state = PDH_CSTATUS_VALID_DATA;
  }
}

TEST_F(ProcessorLoadTest, OfManyInstancesTheTotalIsTaken) {
  script_->counters[0] = {kInformation, kUtility};
  opening_ = machine_->processors().OpenUtility();
  ASSERT_TRUE(opening_.reader);
  script_->instances = 200;
  EXPECT_EQ(Sample(), 42);
  script_->instances = 600;
  script_->growing = true;
  EXPECT_EQ(Sample(), std::nullopt) << "a set that grows with each look is given up";
  script_->growing = false;
  EXPECT_EQ(Sample(), 42);
  script_->without_total = true;
  EXPECT_EQ(Sample(), std::nullopt);
  script_->instances = 0;
  EXPECT_EQ(Sample(), std::nullopt);
}

}  // namespace
}  // namespace platform::windows
