// The few Windows types that stand in the component's interfaces, spelt so that they agree with windows.h where that is
// included too and exist where it is not.
#pragma once

struct SERVICE_STATUS_HANDLE__;  // NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): windows.h's name
/// Handle of the hosting Windows service; null on other systems and in a console.
using SERVICE_STATUS_HANDLE = SERVICE_STATUS_HANDLE__*;
