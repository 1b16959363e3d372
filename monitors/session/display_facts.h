// What is recorded of a display.
#pragma once

#include "client/channel/session_recorder.h"
#include "platform/desktop.h"

namespace TVK {

/// The display with its key and the item data of its dataset context. The key is a hash of maker, model and serial
/// number, of a display without serial number one of where it is attached, too. Pure; any thread.
ObservedDevice ObserveDisplay(const platform::AttachedDisplay& display);

/// The item data of a mode; what is not known is left out.
ItemData DisplayModeItemData(const platform::DisplayMode& mode);

}  // namespace TVK
