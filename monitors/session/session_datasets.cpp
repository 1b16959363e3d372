#include "monitors/session/session_datasets.h"

namespace TVK {

const std::map<std::wstring, std::wstring>& DisplayItems() {
  static const std::map<std::wstring, std::wstring> items = {
      {kDisplayStateItem, L"475736BB-C8F6-4436-B422-A4ACCBE14365"},
      {kBrightnessItem, L"E0D0420A-F13D-43AA-8A14-8987DF369F77"},
      {kResolutionItem, L"EAAA0CA0-ED41-4E4D-9732-401B16176787"},
  };
  return items;
}

const std::map<std::wstring, std::wstring>& PenItems() {
  static const std::map<std::wstring, std::wstring> items = {
      {kPenUseItem, L"8D7C478C-5BB4-44E8-8A3C-F92CD9065888"},
  };
  return items;
}

const std::set<std::wstring>& DisplayKeys() {
  static const std::set<std::wstring> keys = {
      L"BitsPerPixel", L"Brightness", L"DisplayState", L"Height",      L"ManufactureYear", L"Manufacturer",
      L"Model",        L"Primary",    L"ProductCode",  L"RefreshRate", L"SerialNumber",    L"Width",
  };
  return keys;
}

const std::set<std::wstring>& PenKeys() {
  static const std::set<std::wstring> keys = {L"Pen", L"PenSessions", L"Touch", L"TouchContacts", L"TouchSessions"};
  return keys;
}

}  // namespace TVK
