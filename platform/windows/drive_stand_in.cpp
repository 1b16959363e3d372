// A kernel driver that stands in for the drivers of drives: under the names "PhysicalDriveN" that a test gives out, it
// answers each control code as the test has scripted it (drive_stand_in.h). One driver a system.
#include <intrin.h>
// The kit defines these two again, as only C lets it.
#define InterlockedBitTestAndSet KitBitTestAndSet
#define InterlockedBitTestAndReset KitBitTestAndReset
#include <ntddk.h>

#include "platform/windows/drive_stand_in.h"

namespace {

using namespace drive_stand_in;

constexpr ULONG kMostAnswers = 32;
constexpr ULONG kMostHeld = 4;
constexpr ULONG kNames = 10;         // PhysicalDrive0 to 9: one digit
constexpr ULONG kControl = kDrives;  // the number of the control device

struct Device {
  ULONG number;
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
Request g_requests[kDrives];
bool g_named[kNames];

ULONG Least(ULONG one, ULONG other) {
  return one < other ? one : other;
}

// "\Device\..." or "\??\..." with a digit behind it, where there is one.
class Name {
 public:
  Name(const wchar_t* folder, const wchar_t* name, ULONG digit = kNames) {
    Append(folder);
    Append(name);
    if (digit < kNames) characters_[length_++] = static_cast<wchar_t>(L'0' + digit);
    characters_[length_] = 0;
    RtlInitUnicodeString(&text_, characters_);
  }
  Name(const Name&) = delete;
  Name& operator=(const Name&) = delete;

  UNICODE_STRING* get() { return &text_; }

 private:
  void Append(const wchar_t* text) {
    while (*text != 0)
      characters_[length_++] = *text++;
  }

  wchar_t characters_[64];
  ULONG length_ = 0;
  UNICODE_STRING text_;
};

constexpr wchar_t kDevices[] = L"\\Device\\";
constexpr wchar_t kLinks[] = L"\\??\\";
constexpr wchar_t kDriveDevice[] = L"DriveStandInDrive";
constexpr wchar_t kDriveLink[] = L"PhysicalDrive";

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

// Of the first answer that fits; null without one. It is taken out when another one to the same follows.
const Answer* TakeAnswer(ULONG drive, ULONG code, ULONG selector) {
  static Answer taken;
  ULONG first = kMostAnswers;
  bool more = false;
  for (ULONG i = 0; i < g_answer_count && !more; ++i) {
    const Answer& answer = g_answers[i];
    if (answer.drive != drive || answer.code != code) continue;
    if (answer.selector != kAnySelector && answer.selector != selector) continue;
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

// Of a drive. Needs the mutex.
NTSTATUS AnswerAsScripted(ULONG drive, IRP* irp) {
  const auto& asked = IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl;
  const void* const bytes = irp->AssociatedIrp.SystemBuffer;
  Request& request = g_requests[drive];
  ++request.count;
  request.code = asked.IoControlCode;
  request.size = Least(asked.InputBufferLength, kMostBytes);
  if (request.size != 0) RtlCopyMemory(request.bytes, bytes, request.size);
  const ULONG selector = request.size < sizeof(ULONG) ? 0 : *static_cast<const ULONG*>(bytes);
  const Answer* const answer = TakeAnswer(drive, asked.IoControlCode, selector);
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

NTSTATUS Unname(ULONG name) {
  g_named[name] = false;
  return IoDeleteSymbolicLink(Name(kLinks, kDriveLink, name).get());
}

void Reset() {
  Release();
  g_answer_count = 0;
  RtlZeroMemory(g_requests, sizeof(g_requests));
  for (ULONG name = 0; name < kNames; ++name)
    if (g_named[name]) Unname(name);
}

// What the test asks of the control device; `bytes` is what is given back. Needs the mutex.
NTSTATUS Obey(IRP* irp, ULONG_PTR& given) {
  const auto& asked = IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl;
  void* const bytes = irp->AssociatedIrp.SystemBuffer;
  const auto* const words = static_cast<const ULONG*>(bytes);
  const ULONG word_count = asked.InputBufferLength / sizeof(ULONG);
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
  if (word_count == 0) return STATUS_INVALID_PARAMETER;
  if (asked.IoControlCode == kUnname) return words[0] < kNames ? Unname(words[0]) : STATUS_INVALID_PARAMETER;
  if (words[0] >= kDrives) return STATUS_INVALID_PARAMETER;
  if (asked.IoControlCode == kRequest) {
    g_requests[words[0]].held = g_held_count;
    if (asked.OutputBufferLength < sizeof(Request)) return STATUS_BUFFER_TOO_SMALL;
    RtlCopyMemory(bytes, &g_requests[words[0]], sizeof(Request));
    given = sizeof(Request);
    return STATUS_SUCCESS;
  }
  if (word_count < 2) return STATUS_INVALID_PARAMETER;
  switch (asked.IoControlCode) {
    case kName: {
      if (words[1] >= kNames) return STATUS_INVALID_PARAMETER;
      const NTSTATUS status =
          IoCreateSymbolicLink(Name(kLinks, kDriveLink, words[1]).get(), Name(kDevices, kDriveDevice, words[0]).get());
      if (NT_SUCCESS(status)) g_named[words[1]] = true;
      return status;
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

void NTAPI OnUnload(DRIVER_OBJECT* driver) {
  Reset();
  IoDeleteSymbolicLink(Name(kLinks, kControlName).get());
  while (driver->DeviceObject != nullptr)
    IoDeleteDevice(driver->DeviceObject);
}

NTSTATUS MakeDevice(DRIVER_OBJECT* driver, UNICODE_STRING* name, ULONG number) {
  DEVICE_OBJECT* device = nullptr;
  const NTSTATUS status = IoCreateDevice(driver, sizeof(Device), name, FILE_DEVICE_DISK, 0, FALSE, &device);
  if (!NT_SUCCESS(status)) return status;
  static_cast<Device*>(device->DeviceExtension)->number = number;
  device->Flags |= DO_BUFFERED_IO;
  device->Flags &= ~static_cast<ULONG>(DO_DEVICE_INITIALIZING);
  return STATUS_SUCCESS;
}

}  // namespace

extern "C" NTSTATUS NTAPI DriverEntry(DRIVER_OBJECT* driver, UNICODE_STRING* /*registry_path*/) {
  ExInitializeFastMutex(&g_mutex);
  for (ULONG i = 0; i <= IRP_MJ_MAXIMUM_FUNCTION; ++i)
    driver->MajorFunction[i] = OnAnythingElse;
  driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = OnControl;
  driver->DriverUnload = OnUnload;
  Name control(kDevices, kControlName);
  NTSTATUS status = MakeDevice(driver, control.get(), kControl);
  for (ULONG number = 0; number < kDrives && NT_SUCCESS(status); ++number)
    status = MakeDevice(driver, Name(kDevices, kDriveDevice, number).get(), number);
  if (NT_SUCCESS(status)) status = IoCreateSymbolicLink(Name(kLinks, kControlName).get(), control.get());
  if (!NT_SUCCESS(status)) OnUnload(driver);
  return status;
}
