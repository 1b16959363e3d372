#include "monitors/storage/smart_names.h"

#include <cstddef>
#include <cstdint>

namespace TVK {
namespace {

struct Row {
  std::uint8_t id;
  std::wstring_view name;
};

template <std::size_t N>
constexpr SmartNames ById(const Row (&rows)[N]) {
  SmartNames names = {};
  for (const Row& row : rows)
    names[row.id] = row.name;
  return names;
}

}  // namespace

constinit const SmartNames kSataSmartNames = ById({{1, L"ReadErrorRate"},
                                                   {5, L"ReallocatedSectorCount"},
                                                   {9, L"PowerOnHours"},
                                                   {12, L"PowerCycle"},
                                                   {170, L"AvailableReservedSpace"},
                                                   {171, L"ProgramFailCount"},
                                                   {172, L"EraseFailCount"},
                                                   {173, L"AverageProgramEraseCount"},
                                                   {174, L"UnexpectedPowerLossCount"},
                                                   {175, L"PowerLossProtectionFailure"},
                                                   {178, L"UsedReservedBlockCount"},
                                                   {180, L"NormalizedReservedBlockRemaining"},
                                                   {183, L"SATADownshiftCount"},
                                                   {184, L"EndtoEndDetectionCount"},
                                                   {187, L"UncorrectableErrorCount"},
                                                   {188, L"CommandTimeout"},
                                                   {190, L"TemperatureC"},
                                                   {192, L"PowerOffRetractCount"},
                                                   {194, L"Temperature"},
                                                   {197, L"PendingSectorCount"},
                                                   {199, L"CRCErrorCount"},
                                                   {225, L"HostWrites"},
                                                   {226, L"TimedWorkloadMediaWear"},
                                                   {227, L"TimedWorkloadHostRWRatio"},
                                                   {228, L"TimedWorkloadTimer"},
                                                   {230, L"GMRHeadAmplitude"},
                                                   {232, L"EnduranceRemaining"},
                                                   {233, L"MediaWearoutIndicator"},
                                                   {234, L"ThermalThrottleStatus"},
                                                   {236, L"CacheBufferNormalizedMediaWearout"},
                                                   {241, L"TotalLBAWrittenMB"},
                                                   {242, L"TotalLBAReadMB"},
                                                   {243, L"TotalWrittenMB"},
                                                   {244, L"TotalLBAsReadExpanded"},
                                                   {249, L"NANDWrittenGB"}});

constinit const SmartNames kGenericSmartNames = ById({{1, L"RawReadErrorRate"},
                                                      {2, L"ThroughputPerformance"},
                                                      {3, L"SpinupTime"},
                                                      {4, L"StartStopCount"},
                                                      {5, L"ReallocatedSectorCount"},
                                                      {6, L"ReadChannelMargin"},
                                                      {7, L"SeekErrorRate"},
                                                      {8, L"SeekTimePerformance"},
                                                      {9, L"PowerOnHours"},
                                                      {10, L"SpinupRetryCount"},
                                                      {11, L"CalibrationRetryCount"},
                                                      {12, L"PowerCycleCount"},
                                                      {13, L"SoftReadErrorRate"},
                                                      {22, L"CurrentHeliumLevel"},
                                                      {170, L"AvailableReservedSpace"},
                                                      {171, L"SSDProgramFailCount"},
                                                      {172, L"SSDEraseFailCount"},
                                                      {173, L"SSDWearLevelingCount"},
                                                      {174, L"UnexpectedPowerLossCount"},
                                                      {175, L"PowerLossProtectionFailure"},
                                                      {176, L"EraseFailCount"},
                                                      {177, L"WearRangeDelta"},
                                                      {179, L"UsedReservedBlockCountTotal"},
                                                      {180, L"UnusedReservedBlockCountTotal"},
                                                      {181, L"ProgramFailCountTotal"},
                                                      {182, L"EraseFailCount"},
                                                      {183, L"RuntimeBadBlock"},
                                                      {184, L"EndToEndError"},
                                                      {185, L"HeadStability"},
                                                      {186, L"InducedOpVibrationDetection"},
                                                      {187, L"ReportedUncorrectableErrors"},
                                                      {188, L"CommandTimeout"},
                                                      {189, L"HighFlyWrites"},
                                                      {190, L"AirflowTemperature"},
                                                      {191, L"GSenseErrorRate"},
                                                      {192, L"PowerOffRetractCount"},
                                                      {193, L"LoadUnloadCycleCount"},
                                                      {194, L"Temperature"},
                                                      {195, L"HardwareECCRecovered"},
                                                      {196, L"ReallocationCount"},
                                                      {197, L"CurrentPendingSectorCount"},
                                                      {198, L"OfflineScanUncorectableCount"},
                                                      {199, L"UDMACRCErrorRate"},
                                                      {200, L"WriteErrorRate"},
                                                      {201, L"SoftReadErrorRate"},
                                                      {202, L"DataAddressMarkErrors"},
                                                      {203, L"RunOutCancel"},
                                                      {204, L"SoftECCCorrection"},
                                                      {205, L"ThermalAsperityRate"},
                                                      {206, L"FlyingHeight"},
                                                      {207, L"SpinHighCurrent"},
                                                      {208, L"SpinBuzz"},
                                                      {209, L"OfflineSeekPerformance"},
                                                      {210, L"VibrationDuringWrite"},
                                                      {211, L"VibrationDuringWrite"},
                                                      {212, L"ShockDuringWrite"},
                                                      {220, L"DiskShift"},
                                                      {222, L"LoadedHours"},
                                                      {223, L"LoadUnloadRetryCount"},
                                                      {224, L"LoadFriction"},
                                                      {225, L"LoadUnloadCycleCount"},
                                                      {226, L"LoadInTime"},
                                                      {227, L"TorqueAmplificationCount"},
                                                      {228, L"PowerOffRetractCount"},
                                                      {230, L"GMRHeadAmplitude"},
                                                      {231, L"LifeLeft"},
                                                      {232, L"EnduranceRemaining"},
                                                      {233, L"MediaWearoutIndicator"},
                                                      {234, L"AverageEraseCount"},
                                                      {235, L"GoodBlockCount"},
                                                      {240, L"HeadFlyingHours"},
                                                      {241, L"TotalLBAsWritten"},
                                                      {242, L"TotalLBAsRead"},
                                                      {243, L"TotalLBAsWrittenExpanded"},
                                                      {244, L"TotalLBAsReadExpanded"},
                                                      {249, L"NANDWrites"},
                                                      {250, L"ReadErrorRetryRate"},
                                                      {251, L"MinimumSparesReamaining"},
                                                      {252, L"NewlyAddedBadFlashBlock"},
                                                      {254, L"FreeFallProtection"}});

}  // namespace TVK
