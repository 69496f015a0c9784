// What udev knows of a device.
#pragma once

#include "disks.h"

namespace agent {

// A look-up in udev's data base. It answers nothing where udev does not run.
UdevProperty AskUdev();

}  // namespace agent
