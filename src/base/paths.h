// The directories and files of this run.
#pragma once

#include <cstdint>
#include <cstdio>

#include "base/text.h"

namespace patrol {

using Path = Text<512>;
using LongPath = Text<1024>;

// Values of "KVX_log" and "KVX_data", never empty; null until the run environment is set up.
extern const char* trc_name;
extern const char* path_name;

// Files that are used through f_cntl alone have no name here.
extern Path env_path;            // patrol settings
extern Path para_path;           // patrol test parameters
extern Path sche_path;           // patrol Schedule file
extern LongPath xml_path;        // device configuration
extern Path env_path2;           // padiag settings
extern Path sche_path2;          // padiag Schedule file
extern Path para_path2;          // padiag test parameters
extern Path lba_path;            // disk progress of the padiag run
extern LongPath nontarget_path;  // devices that are never diagnosed
extern Path lba_bup_path;        // saved copy of the disk progress

// Selection bits of the file table. The padiag files share bits with the patrol files, so that a
// mask of one bit may take in several entries; what uses the masks depends on it, and so does the
// order of the table.
enum : uint32_t {
    kFileEnv = 0x01,
    kFilePara = 0x02,
    kFileDev = 0x04,
    kFileSche = 0x08,
    kFileTmp = 0x10,
    kFileHddt = 0x20,
    kFileEnv2 = 0x30,
    kFileSche2 = 0x50,
    kFilePara2 = 0x40,
    kFileLba = 0x60,
    kFileLbaBup = 0x80,
    kFileTableEnd = 0xffffffff,
};

struct FileEntry {
    uint32_t identifier;
    const char* path;
    uint32_t open;  // 1 while the file is open through ptl_file_cntl
    FILE* stream;
};

// Ends at the entry whose identifier is kFileTableEnd. That end must be tested before any mask:
// it has every bit set.
extern FileEntry f_cntl[];

// Returns the entry with exactly this identifier; null when there is none.
FileEntry* FindFile(uint32_t identifier);

// Returns the value of the variable `name`, which names a directory; null when it is unset or
// empty: no file of this program is meant for "/".
const char* DirectoryVariable(const char* name);

// Fills every path from `data_directory` ("directory/name", cut to its size) and hands the paths to
// f_cntl. Returns the length that the last path would have uncut.
int BuildPaths(const char* data_directory);

}  // namespace patrol
