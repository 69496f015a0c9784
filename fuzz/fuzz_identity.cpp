// "common.ini" and the machine's identity: what an event to the system log is made of.

#include "report/system_event.h"
#include "report/system_event_settings.h"
#include "state/machine.h"
#include "support.h"

using namespace patrol_fuzz;

FUZZ_TARGET(identity) {
    Agent& agent = Agent::Fresh();
    EventRecord record;
    record.pass = input.Number(INT32_MIN, INT32_MAX);
    record.level = input.Number(1, 3);
    record.end_lba = input.Number<uint64_t>(0, UINT64_MAX);
    const int result = input.Number(0, 9);
    agent.Write("config/common.ini", input.Text());
    agent.Write("data/devconf_cur.xml", input.Text());
    const std::string component = input.Word();
    record.errmsg.Assign(input.Rest());

    MachineIdentity machine;
    SystemEventSettings settings;
    Check(check_config_file(&settings) == 0 && get_serial_model(&machine) == 0,
          "files that are there can be read");
    for (const Text<100>* text : {&machine.serial_number, &machine.model}) {
        Check(text->size() != 1, "a value has two characters or more", text->c_str());
    }
    const bool known = result == 2 || result == 3 || result == 5 || result == 8;
    const bool sent = known && settings.enable != 0;
    for (const Kind& kind : kKinds) {
        for (const char* name : {StartEventName(kind.code), EndEventName(kind.code)}) {
            agent.system_log.clear();
            padiag_sdb_event(name, result, component.c_str(), record);
            const bool begins = agent.system_log.rfind("SDB::ZQWNkvx:10", 0) == 0;
            Check(begins == sent && agent.system_log.empty() != sent,
                  "a known result is sent where sending is on", agent.system_log);
        }
    }
}
