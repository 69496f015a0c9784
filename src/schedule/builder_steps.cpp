#include "schedule/builder_steps.h"

#include <unistd.h>

#include <cerrno>

#include "base/file.h"
#include "base/paths.h"
#include "msg/trace.h"
#include "schedule/device_config.h"
#include "sys/replace_file.h"

namespace patrol {

void AddTarget(Text<512>* targets, const char* target) {
    if (!targets->empty()) targets->Append(",");
    targets->Append(target);
}

int WriteHddSections(const HddSections& sections) {
    Ptltrprintf("[%s] start.\n", sections.caller);
    HddTblAlloc2();
    const Stream configuration = OpenForReading(xml_path.c_str());
    if (configuration == nullptr) {
        Ptltrprintf("[%s] Can't Open %s.\n", sections.caller, xml_path.c_str());
        Ptltrprintf("[%s] end.( -1 )\n", sections.caller);
        return -1;
    }
    int count = 0;
    ScanDisks(sections.caller, configuration.get(), sections.device_line_ends,
              [&] { sections.write_disk(count++); });
    sections.write_end(count);
    FreeNonTargets();
    Ptltrprintf("[%s] end.( 0 )\n", sections.caller);
    return 0;
}

int WriteScheduleFile(const ScheduleFile& file) {
    FileReplacement schedule(file.path);
    const bool writable = access(file.path, W_OK) == 0 || errno == ENOENT;
    if (!writable || schedule.stream() == nullptr) {
        Ptltrprintf("[%s] Can't open %s.\n", file.caller, file.path);
        Ptltrprintf("[%s] end.( -1 )\n", file.caller);
        return -1;
    }
    file.write_cpu(schedule.stream());
    file.write_memory(schedule.stream());
    int result = file.write_hdd(schedule.stream());
    if (!schedule.Commit()) result = -1;
    if (result != 0) Ptltrprintf("[%s] end.( -1 )\n", file.caller);
    return result;
}

}  // namespace patrol
