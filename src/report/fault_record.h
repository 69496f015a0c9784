// Naming the unit that failed.
#pragma once

#include <cstddef>

#include "base/text.h"

namespace patrol {

// What a part report says of a fault.
struct FaultRecord {
    Text<25> mark;
    Text<25> fru_name;  // "HDD", "Partition", or "BB" when the partition cannot be told
    Text<25> fru_index;
    Text<40> location;
    Text<49152> detail;  // the result block of the status record
    Text<8192> summary;  // its error line
};

// Fills `record` but for its detail from the `length` bytes of a status record.
void set_parts_errinf(FaultRecord* record, const char* status, size_t length);

}  // namespace patrol
