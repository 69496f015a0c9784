#include "schedule/builder_steps.h"

#include <unistd.h>

#include <cerrno>

#include "base/file.h"
#include "base/paths.h"
#include "msg/trace.h"
#include "schedule/device_config.h"
#include "sys/replace_file.h"

namespace patrol {
namespace {

// The configuration may be there, but cannot be read, or not to its end.
constexpr int kUnread = -2;

}  // namespace

void AddTarget(Text<512>* targets, const char* target) {
    if (!targets->empty()) targets->Append(",");
    targets->Append(target);
}

int WriteHddSections(const HddSections& sections) {
    Ptltrprintf("[%s] start.\n", sections.caller);
    HddTblAlloc2();
    const Stream configuration = OpenForReading(xml_path.c_str());
    if (configuration == nullptr) {
        const int result = IsPassing(errno) ? kUnread : -1;
        Ptltrprintf("[%s] Can't Open %s.\n", sections.caller, xml_path.c_str());
        Ptltrprintf("[%s] end.( -1 )\n", sections.caller);
        return result;
    }
    int count = 0;
    ScanDisks(sections.caller, configuration.get(), sections.device_line_ends,
              [&] { sections.write_disk(count++); });
    sections.write_end(count);
    FreeNonTargets();
    const bool whole = std::ferror(configuration.get()) == 0;
    Ptltrprintf("[%s] end.( %d )\n", sections.caller, whole ? 0 : -1);
    return whole ? 0 : kUnread;
}

int WriteScheduleFile(const ScheduleParts& file) {
    FileReplacement schedule(file.path);
    const bool writable = access(file.path, W_OK) == 0 || errno == ENOENT;
    if (!writable || schedule.stream() == nullptr) {
        Ptltrprintf("[%s] Can't open %s.\n", file.caller, file.path);
        Ptltrprintf("[%s] end.( -1 )\n", file.caller);
        return -1;
    }
    file.write_cpu(schedule.stream());
    file.write_memory(schedule.stream());
    const int result = file.write_hdd(schedule.stream());
    // Disks that were not read are not to be forgotten.
    if (result != kUnread && schedule.Commit() && result == 0) return 0;
    Ptltrprintf("[%s] end.( -1 )\n", file.caller);
    return -1;
}

}  // namespace patrol
