// Hashes and random bytes, from the system's own cryptography.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

namespace platform {

using Sha256Digest = std::array<std::uint8_t, 32>;

/// SHA-256 (FIPS 180-4) of `bytes`. Throws std::system_error, with its status, when the system's library refuses.
Sha256Digest Sha256(std::string_view bytes);

/// Fills `bytes` from the system's random source. Throws std::runtime_error when it has none.
void FillRandom(std::span<std::uint8_t> bytes);

}  // namespace platform
