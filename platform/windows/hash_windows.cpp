#include "platform/hash.h"

#include "platform/windows/owner.h"

#include <algorithm>
#include <system_error>

namespace platform {
namespace {

void Check(NTSTATUS status, const char* call) {
  if (status < 0) throw std::system_error(status, std::system_category(), call);
}

// The calls count in ULONG and take a pointer to bytes that may be written, which they are not.
constexpr std::size_t kLargestPiece = 1u << 30;

}  // namespace

Sha256Digest Sha256(std::string_view bytes) {
  windows::UniqueAlgorithm algorithm;
  Check(BCryptOpenAlgorithmProvider(algorithm.Receive(), BCRYPT_SHA256_ALGORITHM, nullptr, 0),
        "BCryptOpenAlgorithmProvider");
  windows::UniqueHash hash;
  Check(BCryptCreateHash(algorithm.get(), hash.Receive(), nullptr, 0, nullptr, 0, 0), "BCryptCreateHash");
  while (!bytes.empty()) {
    const std::string_view piece = bytes.substr(0, kLargestPiece);
    Check(BCryptHashData(hash.get(), reinterpret_cast<UCHAR*>(const_cast<char*>(piece.data())),
                         static_cast<ULONG>(piece.size()), 0),
          "BCryptHashData");
    bytes.remove_prefix(piece.size());
  }
  Sha256Digest digest;
  Check(BCryptFinishHash(hash.get(), digest.data(), static_cast<ULONG>(digest.size()), 0), "BCryptFinishHash");
  return digest;
}

void FillRandom(std::span<std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const auto piece = bytes.first(std::min(bytes.size(), kLargestPiece));
    Check(BCryptGenRandom(nullptr, piece.data(), static_cast<ULONG>(piece.size()), BCRYPT_USE_SYSTEM_PREFERRED_RNG),
          "BCryptGenRandom");
    bytes = bytes.subspan(piece.size());
  }
}

}  // namespace platform
