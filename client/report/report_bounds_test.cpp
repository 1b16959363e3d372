// What a report leaves out where there is too much, and that it says so.
#include <gtest/gtest.h>

#include "client/report/measures.h"
#include "client/report/report_json.h"

namespace TVK {
namespace {

DatasetContext Drive(const std::wstring& number) {
  DatasetContext context;
  context.set_dataset_name(L"SMARTEvent");
  context.set_dataset_context_id(number);
  context.set_item_data({{L"Model", L"M" + number}});
  return context;
}

ItemEvent Temperature(const std::wstring& dataset, const std::wstring& context, const std::wstring& celsius) {
  ItemEvent item;
  item.set_dataset_name(dataset);
  item.set_dataset_context_id(context);
  item.set_item_data({{L"TemperatureC", celsius}});
  return item;
}

TEST(ReportBounds, DevicesBeyondThoseThatAreKnownAreCountedAndInNoCurve) {
  constexpr int kKnown = 20000;
  Measures measures({0, 240});
  for (int i = 0; i < kKnown; ++i)
    measures.AddContext(Drive(std::to_wstring(i)));
  measures.AddItem(Temperature(L"SMARTEvent", L"nobody", L"20"), 1);
  for (const wchar_t* const beyond : {L"A", L"B", L"A"})
    measures.AddContext(Drive(beyond));
  measures.AddContext(Drive(L"7"));
  DatasetContext again = Drive(L"8");
  again.set_dataset_context_id(L"8 again");
  measures.AddContext(again);
  measures.AddItem(Temperature(L"SMARTEvent", L"A", L"99"), 2);
  measures.AddItem(Temperature(L"SMARTEvent", L"B", L"98"), 2);
  measures.AddItem(Temperature(L"SMARTEvent", L"7", L"40"), 3);
  std::size_t left_out = 0;
  const std::vector<Timeline> timelines = measures.Take(left_out);
  EXPECT_EQ(left_out, 2u);
  ASSERT_EQ(timelines.size(), 1u);
  ASSERT_EQ(timelines[0].curves.size(), 2u);
  for (const Curve& curve : timelines[0].curves) {
    Extremes all;
    for (const Extremes& bucket : curve.buckets)
      all.Add(bucket);
    EXPECT_EQ(all.count, 1u);
    EXPECT_EQ(all.most, curve.of == "M7" ? 40 : 20) << curve.of;
  }
}

TEST(ReportBounds, AReportIsShortenedToItsCounts) {
  Report report;
  report.descriptions.resize(3);
  report.descriptions[1].changes = {{1, {}}, {2, {}}};
  report.descriptions[1].changes_left_out = 4;
  report.left_out = 5;
  ASSERT_TRUE(Shorten(report));
  ASSERT_EQ(report.descriptions.size(), 3u) << "changes go first";
  EXPECT_TRUE(report.descriptions[1].changes.empty());
  EXPECT_EQ(report.descriptions[1].changes_left_out, 6u);
  ASSERT_TRUE(Shorten(report));
  EXPECT_EQ(report.descriptions.size(), 1u);
  EXPECT_EQ(report.left_out, 7u);
  ASSERT_TRUE(Shorten(report));
  EXPECT_EQ(report.descriptions.size(), 0u);
  EXPECT_EQ(report.left_out, 8u);
  EXPECT_FALSE(Shorten(report));
}

}  // namespace
}  // namespace TVK
