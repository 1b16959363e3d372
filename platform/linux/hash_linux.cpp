#include <nettle/sha2.h>
#include <sys/random.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "platform/hash.h"

namespace platform {

// By nettle: libcrypto, for the one digest that is needed, would take more than a quarter of the idle service's memory.
Sha256Digest Sha256(std::string_view bytes) {
  sha256_ctx context;
  ::sha256_init(&context);
  ::sha256_update(&context, bytes.size(), reinterpret_cast<const std::uint8_t*>(bytes.data()));
  Sha256Digest digest;
  ::sha256_digest(&context, digest.size(), digest.data());
  return digest;
}

void FillRandom(std::span<std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::getrandom(bytes.data(), bytes.size(), 0);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw std::runtime_error("getrandom: " + std::system_category().message(errno));
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
}

}  // namespace platform
