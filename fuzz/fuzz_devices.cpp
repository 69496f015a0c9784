// The device configuration and the list of devices that are never diagnosed: what the builders and
// the look-ups make of them.

#include "schedule/device_config.h"
#include "schedule/old_disks.h"
#include "schedule/padiag_builder.h"
#include "schedule/patrol_builder.h"
#include "schedule/update.h"
#include "state/machine.h"
#include "support.h"

using namespace patrol_fuzz;

FUZZ_TARGET(devices) {
    const Agent& agent = Agent::Fresh();
    hdd_max_data = input.Number(-1, 9);
    agent.Write("data/pat_nontarget.ini", input.Text());
    const std::string needle = input.Word();
    const std::string configuration = input.Rest();
    for (const char* name : {"new", "cur"}) {
        agent.Write("data/devconf_" + std::string(name) + ".xml", configuration);
    }
    // More would only take longer.
    if (GetPrivateProfileInt("NON_TARGETLIST", "number", 1, nontarget_path.c_str()) > 256) return;

    entry_cmd = kModeConfigChange;
    Check(CreateSchedule() == 0 && PadiagCreateSchedule() == 0, "Schedule files can be made");
    CheckWholeSchedule(sche_path.c_str());
    CheckWholeSchedule(sche_path2.c_str());
    Check(CompareSchedule() == 0, "a Schedule can be made anew");
    Check(KnownDisk("") == nullptr, "no old disk stays");

    for (const int kind : {kPathOfCpu, kPathOfMemory, kPathOfDevice}) {
        const std::string place = get_phypath(kind, needle.c_str());
        Check(place.size() < 100 && place.find_first_of("\"\r\n") == std::string::npos,
              "a location is what stands between two quotes", place);
    }
    Text<40> number;
    const int found = find_partition_num(&number);
    Check(found == 1 || number.empty(), "no partition, no number");
}
