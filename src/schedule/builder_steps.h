// The steps that the patrol and the padiag builder have in common. `caller` is the routine to trace
// under.
#pragma once

#include <cstdio>

#include "base/text.h"
#include "sys/replace_file.h"

namespace patrol {

// Write a section line, or a key with its value.
void PutSection(FILE* schedule, const char* section);
void PutText(FILE* schedule, const char* key, const char* value);
void PutNumber(FILE* schedule, const char* key, int value);
void PutFlag(FILE* schedule, const char* key, bool on);

// Adds a target to a comma-separated list.
void AddTarget(Text<512>* targets, const char* target);

// Returns whether what stands at `path` may be a Schedule file, or is missing; traced, and told to
// the agent by one event, when it is no regular file.
bool ScheduleUsable(const char* caller, const char* path);

// Tells the trace and the agent that nothing can be done by the Schedule file at `path`.
void ReportUnusable(const char* caller, const char* path);

// Returns whether the new file at `path` can be written (traced when it cannot; at agent start,
// told to the agent as well).
bool BeginFile(const char* caller, const char* path, const FileReplacement& schedule);

// Puts the file in place when it is complete, or when there is no device configuration, by what the
// step that wrote the disk sections has returned (`disks`). Returns false unless it is complete:
// traced, and at agent start told to the agent where a call has failed.
bool EndFile(const char* caller, const char* path, int disks, FileReplacement* schedule);

}  // namespace patrol
