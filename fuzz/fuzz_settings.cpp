// The settings files of patrol and padiag.

#include "schedule/settings_files.h"
#include "support.h"

using namespace patrol_fuzz;

FUZZ_TARGET(settings) {
    const Agent& agent = Agent::Fresh();
    agent.Write("data/pat_new_para.ini", "[CPUDIAG_PARAM]\n[MEMDIAG_PARAM]\n[HDDDIAG_PARAM]\n");
    agent.Write("data/pat_env0.ini", input.Text());
    agent.Write("data/padiag.ini", input.Rest());
    ReadEnvIni();
    ReadPadiagIni();

    for (const int flag :
         {f_cpu_exe, f_mem_exe, f_hdd_exe, f_padiag_cpu, f_padiag_mem, f_padiag_hdd}) {
        Check(flag == 0 || flag == 1, "a switch is on or off");
    }
    for (const int seconds : {cpu_timeout_data, mem_timeout_data, hdd_timeout_data}) {
        Check(seconds >= 5 && seconds <= 50, "a time-out is 5 to 50 seconds");
    }
    const std::pair<const char*, const TestName*> names[] = {{"CPUDIAG_PARAM", &cpu_test_name},
                                                             {"MEMDIAG_PARAM", &mem_test_name},
                                                             {"HDDDIAG_PARAM", &hdd_test_name}};
    for (const auto& [section, name] : names) {
        // As a reader of profiles cleans a line.
        std::string expected;
        for (const char c : name->view()) {
            if (c != '\r') expected += c;
        }
        expected.erase(expected.find_last_not_of(" \t\v\f") + 1);
        char found[513];
        GetPrivateProfileString(section, "tp", "", found, 512, para_path.c_str());
        Check(found == expected, "the parameter file has the test name", found);
    }
}
