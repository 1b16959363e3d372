// Numbers in the bytes of firmware, drives and the system, the lowest byte first. Pure; any thread.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>

namespace platform {

/// The number of `size` bytes from `at` on. The caller has checked that they are there and that the type holds them.
template <std::unsigned_integral Number>
constexpr Number LittleEndianAt(std::span<const std::uint8_t> bytes, std::size_t at,
                                std::size_t size = sizeof(Number)) {
  std::uint64_t number = 0;
  for (std::size_t i = size; i-- > 0;)
    number = number << 8 | bytes[at + i];
  return static_cast<Number>(number);
}

/// Puts the number there, its lowest byte first. The caller has checked that the bytes are there.
template <std::unsigned_integral Number>
constexpr void PutLittleEndian(std::span<std::uint8_t> bytes, std::size_t at, Number number) {
  for (std::size_t i = 0; i < sizeof(Number); ++i)
    bytes[at + i] = static_cast<std::uint8_t>(std::uint64_t{number} >> 8 * i);
}

}  // namespace platform
