// The life of the service's process around the event manager.
#pragma once

#include "apps/service/service_options.h"

/// Runs the manager in this process until a signal, Ctrl-C or the end of --for; the exit code. For console and daemon.
int RunInProcess(const ServiceOptions& options);

/// Runs as a service of Windows' service manager; empty when no service manager started this process.
std::optional<int> RunUnderServiceManager(const ServiceOptions& options);

/// install, uninstall, start, stop and status; prints what happened. The exit code.
int ControlService(const ServiceOptions& options);
