// Finding the disks in the agent's device configuration, "devconf_new.xml".
//
// The file is read line by line and searched for fixed texts, not parsed: the agent writes one
// element or attribute a line, in a fixed order.
#pragma once

#include <cstdio>
#include <functional>

#include "base/text.h"

namespace patrol {

// What is known of the disk being scanned. Only the path and the IDE mark are set anew for each
// disk: one without a serial, vendor or model line keeps that of the disk before it.
extern Text<512> device_name;  // "/dev/sd..." or "NO DATA"
extern int f_ide_device;       // 1 when the device line names an IDE path
extern Text<512> serial_number;
extern Text<512> xml_vendor;
extern Text<512> xml_model;

struct NonTarget {
    Text<512> vendor;
    Text<512> model;
};

// Devices that are never diagnosed, from "pat_nontarget.ini".
extern int hdd_non_cnt;
extern NonTarget* hdd_non_tbl;

// Loads the table. 0, or -1 with an empty table when it cannot be allocated (traced).
int HddTblAlloc2();
void FreeNonTargets();

// 0: no disk device line; 1: one; 2: one of a logical drive, judged by what stands before the
// device path. Sets device_name and f_ide_device and cuts the line at the path.
int PhypathCheck(char* line);

// 0: no type attribute; 1: one that says HDD; 2: one that says something else.
int GetAttrData(const char* line);

// 0: nothing of interest; 1: an operational status; 2: another status; 3, 4, 5: serial number,
// vendor, model taken.
int GetAttrDataStatus(const char* line);

// Reads the configuration to its end, or to its first software device, and calls `accept` for each
// operational disk that is no non-target. With `device_line_ends` a device line met inside a device
// ends that device, without being looked at itself. `caller` is the routine to trace under.
void ScanDisks(const char* caller, FILE* configuration, bool device_line_ends,
               const std::function<void()>& accept);

}  // namespace patrol
