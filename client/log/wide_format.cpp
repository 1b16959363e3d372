#include "client/log/wide_format.h"

#include <fmt/args.h>
#include <fmt/printf.h>
#include <fmt/xchar.h>

#include <array>

namespace TVK {
namespace internal {

// Only named by the compile-time check; a program that calls one was compiled with a broken checker.
void FormatHasTooFewArguments() {}
void FormatHasTooManyArguments() {}
void FormatConversionDoesNotFitArgument() {}
void FormatConversionIsUnknown() {}

}  // namespace internal

std::wstring FormatWideArguments(const wchar_t* format, std::initializer_list<FormatArgument> args) {
  using Context = fmt::basic_printf_context_t<wchar_t>;
  constexpr std::size_t kMostArguments = 16;
  std::array<fmt::basic_format_arg<Context>, kMostArguments> list;
  std::size_t count = 0;
  for (const FormatArgument& arg : args) {
    if (count == kMostArguments) return format;
    list[count++] = std::visit(
        [](const auto& value) {
          using Value = std::decay_t<decltype(value)>;
          if constexpr (std::same_as<Value, std::wstring_view>) {
            return fmt::detail::make_arg<Context>(fmt::wstring_view(value.data(), value.size()));
          } else {
            return fmt::detail::make_arg<Context>(value);
          }
        },
        arg.value());
  }
  try {
    return fmt::vsprintf(fmt::wstring_view(format),
                         fmt::basic_format_args<Context>(list.data(), static_cast<int>(count)));
  } catch (const std::exception&) {
    return format;
  }
}

}  // namespace TVK
