// What the agent's current device configuration, "devconf_cur.xml", says about the machine.
//
// The file is read line by line and searched for fixed texts, not parsed. It lies in the directory
// named by "KVX_data".
#pragma once

#include "base/text.h"

namespace patrol {

enum : int { kPathOfCpu = 0, kPathOfMemory = 1, kPathOfDevice = 2 };

// Looks up where a component sits: the processor or memory summary, or (kPathOfDevice) the first
// line that holds `needle`. Returns at most 99 characters, in a static text that the next call
// overwrites: copy it at once. It is "no data" when the file is not to be had, its devices end
// first, or `needle` is null where it is asked for (an empty one is in every line); at the end of
// the file without a match the text stays what it was.
const char* get_phypath(int kind, const char* needle);

// Values of 2 to 99 characters; others stay empty.
struct MachineIdentity {
    Text<100> serial_number;
    Text<100> model;
};

// Reads model and serial number of the machine, those of its main board where "KVX_SVTYPE" is "MB".
// Returns 0, or -1 with both empty when "KVX_data" is unset or the file cannot be opened.
int get_serial_model(MachineIdentity* identity);

// Looks up the partition. Returns 1 with its number, 0 when there is none, -1 when the file cannot
// be used. What was found is traced.
int find_partition_num(Text<40>* number);

}  // namespace patrol
