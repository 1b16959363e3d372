// The input as the machine's table and as a file: nothing is read outside of it, and every structure that is handed out
// is whole.
#include <cstdint>
#include <cstdlib>
#include <span>

#include "client/smbios/smbios_dump.h"
#include "client/smbios/smbios_identity.h"
#include "monitors/system/memory_info.h"

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

void Decode(std::vector<std::uint8_t> rsmb) {
  SMBiosTool tool(std::move(rsmb));
  const int error = tool.Initialize();
  Require(error == 0 || error == 2 || error == 4);
  std::size_t structures = 0;
  for (int type = 0; type < 256; ++type) {
    std::list<_SMBiosBuffer> found;
    tool.GetSMBiosBufferByType(type, found);
    structures += found.size();
    for (const _SMBiosBuffer& structure : found) {
      Require(structure.data[0] == type && structure.data[1] >= 4);
      Require(tool.GetLengthOfStructure(structure.data) == static_cast<int>(structure.length));
      Require(structure.data[structure.length - 1] == 0 && structure.data[structure.length - 2] == 0);
      tool.GetString(1, structure.data, structure.length);
      tool.GetString(255, structure.data, structure.length);
      tool.GetString(1, structure.data + 1, UINT32_MAX);
    }
  }
  const TVK::SmbiosSurvey survey = tool.Survey();
  Require(structures == survey.structures && !(survey.damaged && survey.ended));
  if (error == 2 || survey.damaged || structures == 0) Require(!tool.Problem().empty());
  TVK::ReadSmbiosIdentity(tool);
  MemoryInfo info(tool);
  Require(info.GetMemoryInfo() == 0 || error != 0);
  Require(info.slots().size() <= structures);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Decode({data, data + size});
  const TVK::SmbiosDump dump = TVK::NormaliseSmbiosDump({data, size});
  Require(!dump.rsmb.empty() || !dump.problem.empty());
  if (!dump.rsmb.empty()) Decode(dump.rsmb);
  return 0;
}
