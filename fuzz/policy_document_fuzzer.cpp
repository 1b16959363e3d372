// Any bytes as a policy document: never a crash, and every refusal is explained in printable text.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "client/policy/policy_document.h"
#include "client/text/string.h"

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

template <typename Document>
void CheckDocument(const Document& document) {
  bool fatal = false;
  for (const TVK::PolicyProblem& problem : document.problems) {
    fatal = fatal || problem.fatal;
    Require(!problem.message.empty());
    for (const std::string& text : {problem.path, problem.message}) {
      Require(TVK::FindInvalidUtf8(text) == std::string::npos);
      Require(!TVK::HoldsControlCharacter(text));
    }
  }
  Require(document.policy.has_value() == !fatal);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  CheckDocument(TVK::ParseTelemetryPolicy(text));
  CheckDocument(TVK::ParseTvkPolicy(text));
  return 0;
}
