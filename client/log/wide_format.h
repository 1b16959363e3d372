// printf for wide texts, checked when the code is compiled and formatted by fmt, so that "%s" means a wide text on
// every system (the C libraries disagree about that).
//
// Conversions: %s (wide text), %d %i %u %x %X and their lengths h l ll (integers, bool), %c (a wide character), %p (a
// pointer), %%; with flags and widths as printf has them, without '*'.
#pragma once

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

namespace TVK {

/// One argument, its type reduced to what the conversions need. It refers to texts, it does not keep them.
class FormatArgument {
 public:
  FormatArgument(std::wstring_view text) : value_(text) {}
  FormatArgument(const std::wstring& text) : value_(std::wstring_view(text)) {}
  FormatArgument(const wchar_t* text) : value_(std::wstring_view(text)) {}
  FormatArgument(wchar_t character) : value_(character) {}
  template <std::signed_integral T>
  FormatArgument(T number) requires(!std::same_as<T, wchar_t>) : value_(static_cast<std::int64_t>(number)) {}
  template <std::unsigned_integral T>
  FormatArgument(T number) requires(!std::same_as<T, wchar_t>) : value_(static_cast<std::uint64_t>(number)) {}

  FormatArgument(const void* pointer) : value_(pointer) {}

  using Value = std::variant<std::wstring_view, wchar_t, std::int64_t, std::uint64_t, const void*>;
  const Value& value() const { return value_; }

 private:
  Value value_;
};

namespace internal {

enum class ArgumentKind { kText, kCharacter, kInteger, kPointer };

template <typename T>
constexpr ArgumentKind KindOf() {
  using Plain = std::decay_t<T>;
  if constexpr (std::same_as<Plain, wchar_t>) {
    return ArgumentKind::kCharacter;
  } else if constexpr (std::integral<Plain>) {
    return ArgumentKind::kInteger;
  } else if constexpr (std::is_pointer_v<Plain> && !std::convertible_to<T, std::wstring_view>) {
    return ArgumentKind::kPointer;
  } else {
    static_assert(std::convertible_to<T, std::wstring_view>, "a log argument is an integer or a wide text");
    return ArgumentKind::kText;
  }
}

// Calling a function that is not constexpr ends the compilation with its name in the message.
void FormatHasTooFewArguments();
void FormatHasTooManyArguments();
void FormatConversionDoesNotFitArgument();
void FormatConversionIsUnknown();

constexpr bool IsOneOf(wchar_t c, const wchar_t* set) {
  for (; *set != 0; ++set) {
    if (*set == c) return true;
  }
  return false;
}

constexpr void CheckWideFormat(const wchar_t* text, const ArgumentKind* kinds, std::size_t count) {
  std::size_t used = 0;
  for (; *text != 0; ++text) {
    if (*text != L'%') continue;
    ++text;
    if (*text == L'%') continue;
    while (IsOneOf(*text, L"-+ #0123456789."))
      ++text;
    while (IsOneOf(*text, L"hl"))
      ++text;
    if (used == count) FormatHasTooFewArguments();
    const ArgumentKind kind = kinds[used++];
    if (*text == L's') {
      if (kind != ArgumentKind::kText) FormatConversionDoesNotFitArgument();
    } else if (*text == L'c') {
      if (kind != ArgumentKind::kCharacter) FormatConversionDoesNotFitArgument();
    } else if (*text == L'p') {
      if (kind != ArgumentKind::kPointer) FormatConversionDoesNotFitArgument();
    } else if (IsOneOf(*text, L"diuxX")) {
      if (kind != ArgumentKind::kInteger) FormatConversionDoesNotFitArgument();
    } else {
      FormatConversionIsUnknown();
    }
  }
  if (used != count) FormatHasTooManyArguments();
}

}  // namespace internal

/// A literal format that fits arguments of the types `Args`; anything else does not compile.
template <typename... Args>
class CheckedWideFormat {
 public:
  // Implicit, so that a literal can be passed where a checked format is wanted.
  consteval CheckedWideFormat(const wchar_t* text) : text_(text) {  // NOLINT(google-explicit-constructor)
    constexpr internal::ArgumentKind kKinds[] = {internal::KindOf<Args>()..., internal::ArgumentKind::kInteger};
    internal::CheckWideFormat(text, kKinds, sizeof...(Args));
  }
  constexpr const wchar_t* text() const { return text_; }

 private:
  const wchar_t* text_;
};

/// Formats with arguments whose types were reduced. A conversion that does not fit (possible only for a format that was
/// not checked) gives the format itself.
std::wstring FormatWideArguments(const wchar_t* format, std::initializer_list<FormatArgument> args);

template <typename... Args>
std::wstring FormatWide(CheckedWideFormat<std::type_identity_t<Args>...> format, const Args&... args) {
  return FormatWideArguments(format.text(), {FormatArgument(args)...});
}

}  // namespace TVK
