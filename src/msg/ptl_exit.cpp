#include "msg/ptl_exit.h"

#include <cstdlib>

#include "base/paths.h"
#include "msg/log_files.h"

namespace patrol {

void ptl_exit(int status) {
    if (trc_name == nullptr) std::exit(status);
    FlushLogBuffers();
    if (status == 1) ptl_log_backup();
    std::exit(status);
}

}  // namespace patrol
