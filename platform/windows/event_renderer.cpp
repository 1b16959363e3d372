#include "platform/windows/event_renderer.h"

#include <cstdio>
#include <cstring>

#include "platform/windows/text.h"

namespace platform::windows {
namespace {

// It lies behind the texts of other values, wherever those end: at an address that a GUID need not have.
std::string GuidText(const void* bytes) {
  GUID guid;
  std::memcpy(&guid, bytes, sizeof guid);
  char text[40];
  std::snprintf(text, sizeof text, "{%08lX-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", guid.Data1, guid.Data2,
                guid.Data3, guid.Data4[0], guid.Data4[1], guid.Data4[2], guid.Data4[3], guid.Data4[4], guid.Data4[5],
                guid.Data4[6], guid.Data4[7]);
  return text;
}

WallTime TimeOf(std::uint64_t ticks) {
  constexpr std::int64_t kTicksTo1970 = 116'444'736'000'000'000;  // of 100 ns, from 1601
  return WallTime(milliseconds((static_cast<std::int64_t>(ticks) - kTicksTo1970) / 10'000));
}

EventLogValue ValueOf(const EVT_VARIANT& variant) {
  switch (variant.Type) {
    case EvtVarTypeString:
      if (variant.StringVal == nullptr) return {};
      return Utf8FromWide(variant.StringVal);
    case EvtVarTypeByte:
      return std::uint64_t{variant.ByteVal};
    case EvtVarTypeUInt16:
      return std::uint64_t{variant.UInt16Val};
    case EvtVarTypeUInt32:
    case EvtVarTypeHexInt32:
      return std::uint64_t{variant.UInt32Val};
    case EvtVarTypeUInt64:
    case EvtVarTypeHexInt64:
      return std::uint64_t{variant.UInt64Val};
    case EvtVarTypeGuid:
      if (variant.GuidVal == nullptr) return {};
      return GuidText(variant.GuidVal);
    case EvtVarTypeFileTime:
      return TimeOf(variant.FileTimeVal);
    default:
      return {};  // no value that the System part of an event has
  }
}

}  // namespace

DWORD EventRenderer::Open(const std::vector<std::string>& value_paths) {
  std::vector<std::wstring> paths;
  for (const std::string& path : value_paths)
    paths.push_back(WideFromUtf8(path));
  std::vector<const wchar_t*> pointers;
  for (const std::wstring& path : paths)
    pointers.push_back(path.c_str());
  paths_ = paths.size();
  context_.Reset(EvtCreateRenderContext(static_cast<DWORD>(pointers.size()), pointers.data(), EvtRenderContextValues));
  return context_ ? 0 : GetLastError();
}

DWORD EventRenderer::Values(EVT_HANDLE event, std::vector<EventLogValue>& values) {
  const DWORD error = Render(context_.get(), event, EvtRenderEventValues);
  if (error != 0) return error;
  const auto* const variants = reinterpret_cast<const EVT_VARIANT*>(buffer_.data());
  for (std::size_t i = 0; i < paths_; ++i)
    values.push_back(i < count_ ? ValueOf(variants[i]) : EventLogValue());
  return 0;
}

DWORD EventRenderer::Xml(EVT_HANDLE event, std::string& xml) {
  const DWORD error = Render(nullptr, event, EvtRenderEventXml);
  if (error == 0) xml = Text();
  return error;
}

DWORD EventRenderer::Bookmark(EVT_HANDLE bookmark, std::string& xml) {
  const DWORD error = Render(nullptr, bookmark, EvtRenderBookmark);
  if (error != 0) return error;
  xml = Text();
  std::erase_if(xml, [](char c) { return c == '\r' || c == '\n'; });
  return 0;
}

DWORD EventRenderer::Render(EVT_HANDLE context, EVT_HANDLE fragment, DWORD flags) {
  constexpr int kTries = 3;  // an event does not grow, so the second try fits
  DWORD error = ERROR_INSUFFICIENT_BUFFER;
  for (int i = 0; i < kTries && error == ERROR_INSUFFICIENT_BUFFER; ++i) {
    const auto size = static_cast<DWORD>(buffer_.size() * sizeof(buffer_[0]));
    if (EvtRender(context, fragment, flags, size, buffer_.data(), &used_, &count_)) return 0;
    error = GetLastError();
    if (error == ERROR_INSUFFICIENT_BUFFER) buffer_.resize(used_ / sizeof(buffer_[0]) + 1);
  }
  return error;
}

std::string EventRenderer::Text() const {
  const std::wstring_view text(reinterpret_cast<const wchar_t*>(buffer_.data()), used_ / sizeof(wchar_t));
  return Utf8FromWide(text.substr(0, text.find(L'\0')));
}

}  // namespace platform::windows
