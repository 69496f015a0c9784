// The device configuration as the controller reads it.
#pragma once

#include <string>
#include <vector>

#include "disks.h"
#include "machine.h"

namespace agent {

// The text of "devconf_new.xml" and "devconf_cur.xml". The controller reads it line by line, not
// as XML: one element a line; of a disk first the device line, with one character before the
// device path, then type, serial number, vendor and model, and the status last.
std::string DeviceConfig(const Machine& machine, const std::vector<Disk>& disks);

}  // namespace agent
