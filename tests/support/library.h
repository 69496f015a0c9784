// The library pointed at an agent directory, for what calls it without a program around it.
#pragma once

#include <stdlib.h>

#include "agent_dir.h"
#include "base/disk_table.h"
#include "base/paths.h"
#include "base/run_mode.h"
#include "msg/log_files.h"

namespace patrol_test {

// Sets the environment and the paths as the start of the program does.
inline void PointLibraryAt(const AgentDir& agent) {
    for (const auto& [name, value] : agent.Environment()) {
        if (name.rfind("KVX_", 0) == 0 || name == "TZ") setenv(name.c_str(), value->c_str(), 1);
    }
    patrol::host_buf.Assign("host,");
    patrol::trc_name = getenv("KVX_log");
    patrol::path_name = getenv("KVX_data");
    patrol::BuildPaths(patrol::path_name);
}

// Drops what a test has left in memory for the end of a run.
inline void ClearLibrary() {
    patrol::FreeDiskTable();
    patrol::ClearLogBuffers();
}

}  // namespace patrol_test
