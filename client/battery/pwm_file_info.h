// What the power manager's log files tell of a battery.
#pragma once

/// A value.
struct PwmFileInfo {};
