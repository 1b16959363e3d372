#include "client/records/record_json.h"

#include <gtest/gtest.h>

#include <span>

#include "client/records/record_fields.h"

namespace TVK {
namespace {

template <typename Record>
void FillFields(Record& record, std::span<const TextField<Record>> fields) {
  for (const TextField<Record>& field : fields) {
    (record.*field.set)(L"value of " + std::wstring(field.key, field.key + std::char_traits<char>::length(field.key)));
  }
}

const ItemData kHardData = {{L"", L"empty key"},
                            {L"quotes", L"\"\\/"},
                            {L"controls", std::wstring(L"\0\x01\b\t\n\x1F\x7F", 7)},
                            {L"gr\u00FC\u00DFe", L"\u65E5\u672C \U0001F600"}};

TEST(RecordJson, EveryFieldComesBack) {
  ItemEvent event;
  FillFields<ItemEvent>(event, kItemEventFields);
  event.set_item_data(kHardData);
  EXPECT_EQ(ItemEventFromJson(ToJson(event)), event);

  DatasetContext dataset;
  FillFields<DatasetContext>(dataset, kDatasetContextFields);
  dataset.set_item_data(kHardData);
  EXPECT_EQ(DatasetContextFromJson(ToJson(dataset)), dataset);

  DeviceContext device;
  FillFields<DeviceContext>(device, kDeviceContextFields);
  FillFields<DeviceInfo>(device.device_info(), kDeviceInfoFields);
  FillFields<RegionInfo>(device.region_info(), kRegionInfoFields);
  FillFields<TVKInfo>(device.tvk_info(), kTvkInfoFields);
  EXPECT_EQ(DeviceContextFromJson(ToJson(device)), device);

  EXPECT_EQ(ToJson(DeviceContext()), "{}");
  EXPECT_EQ(DeviceContextFromJson("{}"), DeviceContext());
}

TEST(RecordJson, IsOneLineInTheOrderOfTheFieldsWithoutEmptyOnes) {
  ItemEvent event;
  event.set_item_name(L"B\u00FCro\n");
  event.set_dataset_id(L"9492447A");
  event.set_source(L"tvk/cpu");
  event.set_item_data({{L"b", L"2"}, {L"a", L"1"}});
  EXPECT_EQ(ToJson(event),
            "{\"dataset_id\":\"9492447A\",\"item_name\":\"B\u00FCro\\n\",\"source\":\"tvk/cpu\","
            "\"item_data\":{\"a\":\"1\",\"b\":\"2\"}}");
}

TEST(RecordJson, RefusesWhatIsNoRecord) {
  const std::string cases[] = {"",
                               "[]",
                               "null",
                               "{",
                               "{} {}",
                               "{\"item_id\":1}",
                               "{\"item_data\":\"x\"}",
                               "{\"item_data\":{\"a\":{}}}",
                               "{\"item_id\":\"a\",\"item_id\":\"b\"}",
                               "// comment\n{}",
                               std::string(100000, '['),
                               "{\"x\":\"" + std::string(kLongestRecordJson, 'x') + "\"}"};
  for (const std::string& json : cases) {
    EXPECT_FALSE(ItemEventFromJson(json).has_value()) << json.substr(0, 40);
  }
  EXPECT_FALSE(DeviceContextFromJson("{\"region_info\":[]}").has_value());
  EXPECT_TRUE(ItemEventFromJson("{\"later_field\":[1],\"item_id\":\"a\"}").has_value());
}

}  // namespace
}  // namespace TVK
