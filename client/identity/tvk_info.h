// What the client says of itself.
#pragma once

#include <string>

/// The client's id, version and name. Constant after construction; any thread.
class TvkInfo {
 public:
  /// `info_datetime`: the record time at which the client looked at itself, usually its start.
  explicit TvkInfo(std::wstring info_datetime) : info_datetime_(std::move(info_datetime)) {}

  std::wstring GetId() const;
  /// Empty when it is not known.
  std::wstring GetVersion() const;
  std::wstring GetName() const;
  std::wstring GetInfoDatetime() const { return info_datetime_; }

 private:
  const std::wstring info_datetime_;
};
