// What the settings files ask for. Everything is 0 or empty until a settings file has been read.
#pragma once

#include "base/text.h"

namespace patrol {

using TestName = Text<512>;

// Patrol: which kinds are diagnosed (1 or 0), their test names, their time-outs in seconds.
extern int f_cpu_exe;
extern int f_mem_exe;
extern int f_hdd_exe;
extern TestName cpu_test_name;
extern TestName mem_test_name;
extern TestName hdd_test_name;
extern int cpu_timeout_data;
extern int mem_timeout_data;
extern int hdd_timeout_data;

// Most disks diagnosed in one pass; below 0 none falls due.
extern int hdd_max_data;

// Padiag: which kinds were requested (1 or 0), the level, the time limit in seconds. During a
// padiag run the flags say which tests are running.
extern int f_padiag_cpu;
extern int f_padiag_mem;
extern int f_padiag_hdd;
extern int padiag_level;
extern int padiag_time;

}  // namespace patrol
