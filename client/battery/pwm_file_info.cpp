#include "client/battery/pwm_file_info.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "client/battery/battery_date.h"
#include "client/text/string.h"
#include "platform/power_manager.h"
#include "platform/text_scan.h"

namespace {

using TVK::String;

constexpr std::size_t kMostBatteries = 16;

/// More than any line that is known has; keeps a wrong file from filling the memory.
constexpr std::size_t kMostFields = 16;

/// Why a line is left out. Its text is logged: it holds nothing of the line.
struct LineFault : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// That its data is no list of fields.
struct FieldListFault : LineFault {
  using LineFault::LineFault;
};

/// The fields of a line's data, without empty ones. The views last as long as `data`. Throws a FieldListFault when
/// there are too many.
std::vector<std::string_view> GetPwmLineDataFieldList(std::string_view data) {
  std::vector<std::string_view> fields;
  while (!data.empty()) {
    const std::size_t end = std::min(data.find(','), data.size());
    const std::string_view field = platform::TrimBlanks(data.substr(0, end));
    if (!field.empty() && fields.size() == kMostFields) throw FieldListFault("too many fields");
    if (!field.empty()) fields.push_back(field);
    data.remove_prefix(std::min(end + 1, data.size()));
  }
  return fields;
}

std::uint32_t Number(std::string_view field) {
  const auto number = platform::ParseNumber(field);
  if (!number || *number > 0xFFFFFFFF) throw LineFault("a field is no number");
  return static_cast<std::uint32_t>(*number);
}

std::uint32_t PositiveNumber(std::string_view field) {
  const std::uint32_t number = Number(field);
  if (number == 0) throw LineFault("a field is 0");
  return number;
}

std::chrono::year_month_day Date(std::string_view field) {
  const auto date = TVK::ParseBatteryDate(field);
  if (!date) throw LineFault("a field is no date");
  return *date;
}

/// One file while it is read.
class PwmFile {
 public:
  /// Takes over what a line tells. Throws a LineFault when it tells nothing that can be used.
  void Take(std::string_view line) {
    const std::size_t sign = line.find('=');
    if (sign == line.npos) return;
    const std::string_view name = platform::TrimBlanks(line.substr(0, sign));
    const std::string_view data = line.substr(sign + 1);
    if (name == "Battery") Begin(data);
    if (name == "FirstUseDate") Present().Add({.first_use_date = Date(Fields(data, 1, 1)[0])});
    if (name == "Usage") {
      const auto fields = Fields(data, 3, 3);
      Present().Add(
          {.usage_date = Date(fields[0]), .cycle_count = PositiveNumber(fields[1]), .usage_hours = Number(fields[2])});
    }
  }

  std::vector<PwmFileInfo> infos() && { return std::move(infos_); }

 private:
  static std::vector<std::string_view> Fields(std::string_view data, std::size_t least, std::size_t most) {
    auto fields = GetPwmLineDataFieldList(data);
    if (fields.size() < least || fields.size() > most) throw LineFault("another number of fields than its name wants");
    return fields;
  }

  PwmFileInfo& Present() {
    if (present_ == infos_.size()) throw LineFault("it follows no battery");
    return infos_[present_];
  }

  void Begin(std::string_view data) {
    present_ = infos_.size();  // what follows a line that names no battery is no battery's
    const auto fields = Fields(data, 1, 2);
    const std::uint32_t number = PositiveNumber(fields[0]);
    const std::wstring serial = fields.size() == 2 ? String::UTF8ToUTF16(fields[1]) : std::wstring();
    const auto known = std::ranges::find_if(
        infos_, [&](const PwmFileInfo& info) { return info.battery_number == number && info.serial_number == serial; });
    if (known == infos_.end() && infos_.size() == kMostBatteries) throw LineFault("too many batteries");
    present_ = static_cast<std::size_t>(known - infos_.begin());
    if (present_ == infos_.size()) infos_.push_back({.battery_number = number, .serial_number = serial});
  }

  std::vector<PwmFileInfo> infos_;
  std::size_t present_ = 0;  ///< Of infos_, the one that lines are about; its size: none.
};

}  // namespace

void PwmFileInfo::Add(const PwmFileInfo& later) {
  if (later.first_use_date && (!first_use_date || later.first_use_date < first_use_date))
    first_use_date = later.first_use_date;
  if (later.usage_date && later.usage_date >= usage_date) {
    usage_date = later.usage_date;
    cycle_count = later.cycle_count;
    usage_hours = later.usage_hours;
  }
}

std::vector<PwmFileInfo> PwmFileTool::GetPwmFileInfoList(platform::PowerManager& power_manager) {
  const platform::PowerManagerLogs read = power_manager.ReadLogs(kLeastFileBytes, kMostFileBytes);
  if (read.refusal) {
    faults_.Add(TVK::FormatWide(L"refusal %d", *read.refusal),
                TVK::FormatWide(L"PwmFileTool::GetPwmFileInfo ImperonateLogonUser failed,should run it with system "
                                L"privilege,errorcode=%d\n",
                                *read.refusal));
  }
  if (read.failure) {
    faults_.Add(
        TVK::FormatWide(L"failure %d", *read.failure),
        TVK::FormatWide(L"PwmFileTool::GetPwmFileInfoList the log files could not be read, error %d", *read.failure));
  }
  std::vector<PwmFileInfo> list;
  for (const platform::PowerManagerLog& file : read.logs) {
    if (file.bytes < kLeastFileBytes || file.bytes > kMostFileBytes) {
      // A log that grew too large goes on growing.
      faults_.Add(String::UTF8ToUTF16(file.name),
                  TVK::FormatWide(L"PwmFileTool::GetPwmFileInfoList PWM log file size (%lu bytes) is out of range",
                                  file.bytes));
      continue;
    }
    std::ranges::move(GetPwmFileInfo(file), std::back_inserter(list));
  }
  if (read.refusal || read.failure || !read.logs.empty()) faults_.EndReading();
  return list;
}

void PwmFileTool::AddFault(const platform::PowerManagerLog& file, const std::wstring& line) {
  faults_.Add(String::UTF8ToUTF16(file.name) + L": " + line, line);
}

std::vector<PwmFileInfo> PwmFileTool::GetPwmFileInfo(const platform::PowerManagerLog& file) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  std::string_view text = file.text;
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  if (text.find('\0') != text.npos || TVK::FindInvalidUtf8(text) != text.npos) {
    AddFault(file, L"mFileTool::GetPwmFileInfo, the file is no UTF-8 text");
    return {};
  }
  const auto tell = [&](bool& told, const wchar_t* caller, std::size_t line, const LineFault& fault) {
    if (!std::exchange(told, true))
      AddFault(file, TVK::FormatWide(L"%s, line %llu: %s", caller, line, String::UTF8ToUTF16(fault.what())));
  };
  PwmFile pwm;
  bool is_field_list_fault_told = false;
  bool is_fault_told = false;
  for (std::size_t line = 1; !text.empty(); ++line) {
    try {
      pwm.Take(platform::TakeLine(text));
    } catch (const FieldListFault& fault) {
      tell(is_field_list_fault_told, L"PwmFileTool::GetPwmLineDataFieldList", line, fault);
    } catch (const LineFault& fault) {
      tell(is_fault_told, L"mFileTool::GetPwmFileInfo", line, fault);
    }
  }
  return std::move(pwm).infos();
}
