// What names a dataset on its records.
#pragma once

#include <string>

struct DatasetIdentity {
  std::wstring id;  ///< Upper-case GUID text.
  std::wstring name;
  std::wstring source;  ///< Topic, "tvk/cpu".
  std::wstring type;    ///< Kind of the dataset, "device-activity".
};
