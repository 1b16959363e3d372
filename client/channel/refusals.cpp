#include "client/channel/refusals.h"

#include <utility>

#include "client/text/string.h"

namespace TVK {

std::string_view RefusalName(Refusal refusal) {
  constexpr std::array<std::string_view, kRefusalKinds> kNames = {"no room", "unknown caller", "broken message",
                                                                  "not allowed", "too many"};
  return kNames[static_cast<std::size_t>(refusal)];
}

void Refusals::Count(Refusal refusal, const platform::LocalCaller* caller, std::string_view what) {
  {
    const auto kind = static_cast<std::size_t>(refusal);
    const std::lock_guard lock(mutex_);
    const bool names_first = caller != nullptr && !std::exchange(named_[kind], true);
    if (++counts_[kind] > 1 && !names_first) return;
  }
  log_.e(L"refused, %s: %s (user %s, process %u); further ones of this kind are counted alone",
         String::UTF8ToUTF16(RefusalName(refusal)), String::UTF8ToUTF16(HarmlessText(what)),
         String::UTF8ToUTF16(caller == nullptr ? "?" : caller->user), caller == nullptr ? 0u : caller->process);
}

std::array<std::uint64_t, kRefusalKinds> Refusals::counts() const {
  const std::lock_guard lock(mutex_);
  return counts_;
}

}  // namespace TVK
