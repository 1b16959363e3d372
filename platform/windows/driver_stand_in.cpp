// A kernel driver that stands in for others: under the names that a test gives out ("PhysicalDrive0"), and for
// batteries where it is installed for them (driver_stand_in.inf), it answers each control code as the test has scripted
// it (driver_stand_in.h). One driver a system.
#include <intrin.h>
// The kit defines these two again, as only C lets it.
#define InterlockedBitTestAndSet KitBitTestAndSet
#define InterlockedBitTestAndReset KitBitTestAndReset
#include <ntddk.h>

#include "platform/windows/driver_stand_in.h"

namespace {

using namespace driver_stand_in;

constexpr ULONG kMostAnswers = 32;
constexpr ULONG kMostHeld = 4;
constexpr ULONG kMostNames = 8;
constexpr ULONG kControl = kDevices;  // the number of the control device

// GUID_DEVICE_BATTERY
constexpr GUID kBatteryInterface = {0x72631e54, 0x78A4, 0x11d0, {0xbc, 0xf7, 0x00, 0xaa, 0x00, 0xb7, 0xb3, 0x2a}};

struct Device {
  ULONG number;
  DEVICE_OBJECT* lower;           // of a battery: what it is attached to
  UNICODE_STRING interface_path;  // the same
};

struct Held {
  PIRP irp;
  Answer answer;
};

FAST_MUTEX g_mutex;  // guards all of what follows
Answer g_answers[kMostAnswers];
ULONG g_answer_count;
Held g_held[kMostHeld];
ULONG g_held_count;
Request g_requests[kDevices];
wchar_t g_names[kMostNames][32];  // those given out; empty: free

ULONG Least(ULONG one, ULONG other) {
  return one < other ? one : other;
}

// "\Device\..." or "\??\...", with the device's number behind it where there is one.
class Name {
 public:
  Name(const wchar_t* folder, const wchar_t* name, ULONG number = kControl) {
    Append(folder);
    Append(name);
    if (number < kControl) characters_[length_++] = static_cast<wchar_t>(L'0' + number);
    characters_[length_] = 0;
    RtlInitUnicodeString(&text_, characters_);
  }
  Name(const Name&) = delete;
  Name& operator=(const Name&) = delete;

  UNICODE_STRING* get() { return &text_; }

 private:
  void Append(const wchar_t* text) {
    while (*text != 0 && length_ < 60)
      characters_[length_++] = *text++;
  }

  wchar_t characters_[64];
  ULONG length_ = 0;
  UNICODE_STRING text_;
};

constexpr wchar_t kDeviceFolder[] = L"\\Device\\";
constexpr wchar_t kLinks[] = L"\\??\\";
constexpr wchar_t kNamedDevice[] = L"DriverStandInDevice";

bool Same(const wchar_t* one, const wchar_t* other) {
  while (*one != 0 && *one == *other) {
    ++one;
    ++other;
  }
  return *one == *other;
}

NTSTATUS Complete(IRP* irp, NTSTATUS status, ULONG_PTR bytes) {
  irp->IoStatus.Status = status;
  irp->IoStatus.Information = bytes;
  IoCompleteRequest(irp, IO_NO_INCREMENT);
  return status;
}

NTSTATUS CompleteWith(IRP* irp, const Answer& answer) {
  const IO_STACK_LOCATION* const place = IoGetCurrentIrpStackLocation(irp);
  const ULONG size = Least(answer.size, place->Parameters.DeviceIoControl.OutputBufferLength);
  if (size != 0) RtlCopyMemory(irp->AssociatedIrp.SystemBuffer, answer.bytes, size);
  return Complete(irp, answer.status, size);
}

bool Selects(const Answer& answer, const Request& request) {
  if (answer.selector == kAnySelector) return true;
  ULONG word = 0;
  if (answer.selector_at + sizeof(word) > request.size) return false;
  RtlCopyMemory(&word, request.bytes + answer.selector_at, sizeof(word));
  return word == answer.selector;
}

// Of the first answer that fits; null without one. It is taken out when another one to the same follows.
const Answer* TakeAnswer(ULONG device, const Request& request) {
  static Answer taken;
  ULONG first = kMostAnswers;
  bool more = false;
  for (ULONG i = 0; i < g_answer_count && !more; ++i) {
    const Answer& answer = g_answers[i];
    if (answer.device != device || answer.code != request.code || !Selects(answer, request)) continue;
    more = first != kMostAnswers;
    if (!more) first = i;
  }
  if (first == kMostAnswers) return nullptr;
  RtlCopyMemory(&taken, &g_answers[first], sizeof(taken));
  if (more) {
    --g_answer_count;
    RtlMoveMemory(&g_answers[first], &g_answers[first + 1], (g_answer_count - first) * sizeof(Answer));
  }
  return &taken;
}

// Of a device. Needs the mutex.
NTSTATUS AnswerAsScripted(ULONG device, IRP* irp) {
  const auto& asked = IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl;
  const void* const bytes = irp->AssociatedIrp.SystemBuffer;
  Request& request = g_requests[device];
  ++request.count;
  request.code = asked.IoControlCode;
  request.size = Least(asked.InputBufferLength, kMostBytes);
  if (request.size != 0) RtlCopyMemory(request.bytes, bytes, request.size);
  const Answer* const answer = TakeAnswer(device, request);
  if (answer == nullptr) return Complete(irp, STATUS_INVALID_DEVICE_REQUEST, 0);
  if (!answer->held || g_held_count == kMostHeld) return CompleteWith(irp, *answer);
  IoMarkIrpPending(irp);
  g_held[g_held_count].irp = irp;
  RtlCopyMemory(&g_held[g_held_count].answer, answer, sizeof(*answer));
  ++g_held_count;
  return STATUS_PENDING;
}

void Release() {
  while (g_held_count > 0) {
    --g_held_count;
    CompleteWith(g_held[g_held_count].irp, g_held[g_held_count].answer);
  }
}

NTSTATUS GiveName(const Naming& naming) {
  for (auto& name : g_names) {
    if (name[0] != 0) continue;
    const NTSTATUS status =
        IoCreateSymbolicLink(Name(kLinks, naming.name).get(), Name(kDeviceFolder, kNamedDevice, naming.device).get());
    if (NT_SUCCESS(status)) RtlCopyMemory(name, naming.name, sizeof(name));
    return status;
  }
  return STATUS_INSUFFICIENT_RESOURCES;
}

NTSTATUS TakeName(const wchar_t* taken) {
  for (auto& name : g_names)
    if (Same(name, taken)) name[0] = 0;
  return IoDeleteSymbolicLink(Name(kLinks, taken).get());
}

void Reset() {
  Release();
  g_answer_count = 0;
  RtlZeroMemory(g_requests, sizeof(g_requests));
  for (auto& name : g_names) {
    if (name[0] == 0) continue;
    IoDeleteSymbolicLink(Name(kLinks, name).get());
    name[0] = 0;
  }
}

// What the test asks of the control device; `bytes` is what is given back. Needs the mutex.
NTSTATUS Obey(IRP* irp, ULONG_PTR& given) {
  const auto& asked = IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl;
  void* const bytes = irp->AssociatedIrp.SystemBuffer;
  if (asked.IoControlCode == kRelease) {
    Release();
    return STATUS_SUCCESS;
  }
  if (asked.IoControlCode == kForget) {
    g_answer_count = 0;
    return STATUS_SUCCESS;
  }
  if (asked.IoControlCode == kReset) {
    Reset();
    return STATUS_SUCCESS;
  }
  // Everything else begins with a device's number.
  if (asked.InputBufferLength < sizeof(ULONG)) return STATUS_INVALID_PARAMETER;
  const ULONG device = *static_cast<const ULONG*>(bytes);
  if (device >= kDevices) return STATUS_INVALID_PARAMETER;
  switch (asked.IoControlCode) {
    case kRequest:
      g_requests[device].held = g_held_count;
      if (asked.OutputBufferLength < sizeof(Request)) return STATUS_BUFFER_TOO_SMALL;
      RtlCopyMemory(bytes, &g_requests[device], sizeof(Request));
      given = sizeof(Request);
      return STATUS_SUCCESS;
    case kName:
    case kUnname: {
      if (asked.InputBufferLength < sizeof(Naming)) return STATUS_INVALID_PARAMETER;
      const auto& naming = *static_cast<const Naming*>(bytes);
      return asked.IoControlCode == kName ? GiveName(naming) : TakeName(naming.name);
    }
    case kAnswer: {
      const ULONG head = sizeof(Answer) - kMostBytes;
      if (g_answer_count == kMostAnswers || asked.InputBufferLength < head) return STATUS_INVALID_PARAMETER;
      Answer& answer = g_answers[g_answer_count++];
      RtlCopyMemory(&answer, bytes, Least(asked.InputBufferLength, sizeof(Answer)));
      answer.size = Least(answer.size, asked.InputBufferLength - head);
      return STATUS_SUCCESS;
    }
    default:
      return STATUS_INVALID_DEVICE_REQUEST;
  }
}

ULONG NumberOf(const DEVICE_OBJECT* device) {
  return static_cast<const Device*>(device->DeviceExtension)->number;
}

NTSTATUS NTAPI OnControl(DEVICE_OBJECT* device, IRP* irp) {
  ExAcquireFastMutex(&g_mutex);
  NTSTATUS status = STATUS_SUCCESS;
  if (NumberOf(device) == kControl) {
    ULONG_PTR given = 0;
    status = Obey(irp, given);
    Complete(irp, status, given);
  } else {
    status = AnswerAsScripted(NumberOf(device), irp);
  }
  ExReleaseFastMutex(&g_mutex);
  return status;
}

NTSTATUS NTAPI OnAnythingElse(DEVICE_OBJECT* /*device*/, IRP* irp) {
  return Complete(irp, STATUS_SUCCESS, 0);
}

// A battery is there from its start on, to the end of the system.
NTSTATUS NTAPI OnPlugAndPlay(DEVICE_OBJECT* device, IRP* irp) {
  auto* const battery = static_cast<Device*>(device->DeviceExtension);
  if (battery->lower == nullptr) return Complete(irp, STATUS_SUCCESS, 0);
  if (IoGetCurrentIrpStackLocation(irp)->MinorFunction == IRP_MN_START_DEVICE) {
    irp->IoStatus.Status = IoSetDeviceInterfaceState(&battery->interface_path, TRUE);
  }
  IoSkipCurrentIrpStackLocation(irp);
  return IoCallDriver(battery->lower, irp);
}

void NTAPI OnUnload(DRIVER_OBJECT* driver) {
  Reset();
  IoDeleteSymbolicLink(Name(kLinks, kControlName).get());
  while (driver->DeviceObject != nullptr)
    IoDeleteDevice(driver->DeviceObject);
}

NTSTATUS MakeDevice(DRIVER_OBJECT* driver, UNICODE_STRING* name, ULONG number, DEVICE_OBJECT*& device) {
  const NTSTATUS status = IoCreateDevice(driver, sizeof(Device), name, FILE_DEVICE_DISK, 0, FALSE, &device);
  if (!NT_SUCCESS(status)) return status;
  auto* const extension = static_cast<Device*>(device->DeviceExtension);
  RtlZeroMemory(extension, sizeof(*extension));
  extension->number = number;
  device->Flags |= DO_BUFFERED_IO;
  device->Flags &= ~static_cast<ULONG>(DO_DEVICE_INITIALIZING);
  return STATUS_SUCCESS;
}

// "\??\ROOT#TVKBATTERY#0001#{...": the number behind the second "#", which is one digit here.
ULONG PlaceOf(const UNICODE_STRING& path) {
  ULONG marks = 0;
  for (ULONG i = 0; i + 4 < path.Length / sizeof(wchar_t); ++i)
    if (path.Buffer[i] == L'#' && ++marks == 2) return path.Buffer[i + 4] - ULONG{L'0'};
  return kBatteries;
}

NTSTATUS NTAPI OnBattery(DRIVER_OBJECT* driver, DEVICE_OBJECT* physical) {
  UNICODE_STRING path;
  NTSTATUS status = IoRegisterDeviceInterface(physical, &kBatteryInterface, nullptr, &path);
  if (!NT_SUCCESS(status)) return status;
  if (PlaceOf(path) >= kBatteries) return STATUS_INVALID_PARAMETER;
  DEVICE_OBJECT* device = nullptr;
  status = MakeDevice(driver, nullptr, kFirstBattery + PlaceOf(path), device);
  if (!NT_SUCCESS(status)) return status;
  auto* const battery = static_cast<Device*>(device->DeviceExtension);
  battery->interface_path = path;
  battery->lower = IoAttachDeviceToDeviceStack(device, physical);
  return STATUS_SUCCESS;
}

}  // namespace

extern "C" NTSTATUS NTAPI DriverEntry(DRIVER_OBJECT* driver, UNICODE_STRING* /*registry_path*/) {
  ExInitializeFastMutex(&g_mutex);
  for (ULONG i = 0; i <= IRP_MJ_MAXIMUM_FUNCTION; ++i)
    driver->MajorFunction[i] = OnAnythingElse;
  driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = OnControl;
  driver->MajorFunction[IRP_MJ_PNP] = OnPlugAndPlay;
  driver->DriverExtension->AddDevice = OnBattery;
  driver->DriverUnload = OnUnload;
  Name control(kDeviceFolder, kControlName);
  DEVICE_OBJECT* device = nullptr;
  NTSTATUS status = MakeDevice(driver, control.get(), kControl, device);
  for (ULONG number = 0; number < kNamed && NT_SUCCESS(status); ++number)
    status = MakeDevice(driver, Name(kDeviceFolder, kNamedDevice, number).get(), number, device);
  if (NT_SUCCESS(status)) status = IoCreateSymbolicLink(Name(kLinks, kControlName).get(), control.get());
  if (!NT_SUCCESS(status)) OnUnload(driver);
  return status;
}
