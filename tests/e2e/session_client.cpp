// Hands observations over to a service as the user agent does, one after the other until it is killed or refused, and
// prints the number of each that was acknowledged.
#include <iostream>

#include "client/channel/channel_client.h"
#include "monitors/session/session_datasets.h"
#include "platform/files.h"
#include "platform/local.h"
#include "platform/program_entry.h"

int ProgramMain(std::vector<std::string> arguments) {
  if (arguments.size() != 1) return 1;
  const auto runtime = platform::MakeRealRuntime({});
  const TVK::Log log;
  TVK::ChannelClient client(*runtime, platform::PathFromUtf8(arguments[0]));
  TVK::ChannelRecorder recorder(client, log);
  const std::wstring dataset(TVK::kPenRow.id);
  int result = recorder.LogDatasetContext(dataset, {{.key = {}, .facts = {{L"Pen", L"false"}}}}, false);
  for (int i = 1; result == 0; ++i) {
    result = recorder.WriteItem(dataset, TVK::kPenUseItem, {{L"PenSessions", std::to_wstring(i)}}, {});
    if (result == 0) std::cout << i << std::endl;
  }
  std::cout << "refused: " << result << std::endl;
  return 2;
}
