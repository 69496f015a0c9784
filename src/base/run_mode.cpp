#include "base/run_mode.h"

namespace patrol {

uint8_t entry_cmd = 0;
int32_t error_point = 0;
Text<64> host_buf;

}  // namespace patrol
