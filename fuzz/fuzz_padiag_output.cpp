// The output file of an on-request test: what is entered and announced.

#include <algorithm>

#include "base/file.h"
#include "control/padiag_output.h"
#include "support.h"
#include "sys/deferred_writes.h"

using namespace patrol_fuzz;

FUZZ_TARGET(padiag_output) {
    const Agent& agent = Agent::Fresh();
    patrol_test::EventPipe events(agent);
    const Kind& kind = kKinds[input.Number(0, 2)];
    padiag_level = input.Number(1, 3);
    agent.Write("config/common.ini", "[sdb]\nenable=1\n");
    agent.WriteDiskSchedule("data/pat_sche2.txt");
    agent.Write("data/lba_outfile.ini", input.Text());
    const auto much = input.Number<size_t>(0, kLongest);
    agent.Write("data/out", Grown(input.Rest(), much));
    AllocateDiskTable(1);
    RunningTest* test = RunTest(kind.code);
    test->padiag.event_check = 1;
    test->padiag.phypath.Assign("/place");

    const Stream file = OpenForReading(agent.Path("data/out").c_str());
    ReadPadiagOutput("Fuzz", test, file.get());
    FlushDeferredWrites();

    agent.CheckDiskSchedule("data/pat_sche2.txt");
    const std::string history = agent.Read("log/pastat.txt"), sent = agent.system_log;
    Check(std::count(sent.begin(), sent.end(), '\n') <=
              std::count(history.begin(), history.end(), '\n'),
          "what is announced is entered", sent);
    Check(test->padiag.event_check == (sent.empty() ? 1 : 0), "a test told its end or did not");
    for (size_t at = 0; at < history.size();) {
        const size_t end = history.find('\n', at);
        Check(end != std::string::npos && end - at < 250, "a history line is whole",
              history.substr(at, end - at));
        CheckOneLine(history.substr(at, end - at));
        at = end + 1;
    }
    for (const std::string& line : patrol_test::Split(sent)) CheckOneLine(line);
    CheckEvents(&events);
    CheckReports(agent);
    FreeDiskTable();
}
