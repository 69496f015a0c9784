#include "base/settings.h"

namespace patrol {

int f_cpu_exe = 0;
int f_mem_exe = 0;
int f_hdd_exe = 0;
TestName cpu_test_name;
TestName mem_test_name;
TestName hdd_test_name;
int cpu_timeout_data = 0;
int mem_timeout_data = 0;
int hdd_timeout_data = 0;
int hdd_max_data = 0;

int f_padiag_cpu = 0;
int f_padiag_mem = 0;
int f_padiag_hdd = 0;
int padiag_level = 0;
int padiag_time = 0;

}  // namespace patrol
