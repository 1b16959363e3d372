// One text field of a record: its getter, its setter and its member.
// A record class lists its fields with this macro, and record_field.h is included by record headers only.
#pragma once

#include <string>
#include <utility>

#define TVK_RECORD_FIELD(name)                \
 public:                                      \
  const std::wstring& name() const noexcept { \
    return name##_;                           \
  }                                           \
  void set_##name(std::wstring value) {       \
    name##_ = std::move(value);               \
  }                                           \
                                              \
 private:                                     \
  std::wstring name##_
