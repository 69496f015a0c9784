#include "base/paths.h"

#include <cstdlib>

namespace patrol {

const char* trc_name = nullptr;
const char* path_name = nullptr;

Path env_path;
Path para_path;
Path sche_path;
LongPath xml_path;
Path env_path2;
Path sche_path2;
Path para_path2;
Path lba_path;
LongPath nontarget_path;
Path lba_bup_path;

namespace {

Path dev_path;   // device list of the test side
Path tmp_path;   // saved pipe data
Path hddt_path;  // disk table of the test side

}  // namespace

// The order counts: ptl_fseek finds an entry by its position, and opening stops at the first one
// that fails.
FileEntry f_cntl[] = {
    {kFileEnv, "", 0, nullptr},    {kFilePara, "", 0, nullptr},
    {kFileDev, "", 0, nullptr},    {kFileSche, "", 0, nullptr},
    {kFileTmp, "", 0, nullptr},    {kFileHddt, "", 0, nullptr},
    {kFileEnv2, "", 0, nullptr},   {kFileSche2, "", 0, nullptr},
    {kFilePara2, "", 0, nullptr},  {kFileLba, "", 0, nullptr},
    {kFileLbaBup, "", 0, nullptr}, {kFileTableEnd, nullptr, 0, nullptr},
};

FileEntry* FindFile(uint32_t identifier) {
    for (FileEntry* entry = f_cntl; entry->identifier != kFileTableEnd; ++entry) {
        if (entry->identifier == identifier) return entry;
    }
    return nullptr;
}

const char* DirectoryVariable(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr && value[0] != '\0' ? value : nullptr;
}

int BuildPaths(const char* data_directory) {
    struct Row {
        char* path;
        size_t size;
        const char* name;
        uint32_t identifier;  // 0: not in the file table
    };
    const Row rows[] = {
        {env_path.data(), Path::kSize, "pat_env0.ini", kFileEnv},
        {para_path.data(), Path::kSize, "pat_new_para.ini", kFilePara},
        {dev_path.data(), Path::kSize, "pat_devl.txt", kFileDev},
        {sche_path.data(), Path::kSize, "pat_new_sche.txt", kFileSche},
        {tmp_path.data(), Path::kSize, "pat_temp.txt", kFileTmp},
        {hddt_path.data(), Path::kSize, "pat_hddt.txt", kFileHddt},
        {xml_path.data(), LongPath::kSize, "devconf_new.xml", 0},
        {env_path2.data(), Path::kSize, "padiag.ini", kFileEnv2},
        {sche_path2.data(), Path::kSize, "pat_sche2.txt", kFileSche2},
        {para_path2.data(), Path::kSize, "padiag_para.ini", kFilePara2},
        {lba_path.data(), Path::kSize, "lba_outfile.ini", kFileLba},
        {nontarget_path.data(), LongPath::kSize, "pat_nontarget.ini", 0},
        {lba_bup_path.data(), Path::kSize, "lba_outfile_bup.ini", kFileLbaBup},
    };
    int length = 0;
    for (const Row& row : rows) {
        length = snprintfx(row.path, row.size, "%s/%s", data_directory, row.name);
        if (row.identifier != 0) FindFile(row.identifier)->path = row.path;
    }
    return length;
}

}  // namespace patrol
