#include "control/pipe_data.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/number.h"
#include "base/paths.h"
#include "msg/call_failure.h"
#include "report/records.h"

namespace patrol {

int check_pipedata(long* offset) {
    constexpr size_t kMarkSize = sizeof kRecordMagic - 1;
    const FileEntry* file = FindFile(kFileTmp);
    if (file->stream != nullptr) std::clearerr(file->stream);
    if (file->stream == nullptr || std::fseek(file->stream, *offset, SEEK_SET) != 0) return -1;
    char line[512];
    long line_start = *offset;
    while (std::fgets(line, sizeof line, file->stream) != nullptr) {
        const char* mark = std::strstr(line, kRecordMagic);
        // One separator stands between the marker and the number.
        if (mark != nullptr && mark[kMarkSize] != '\0') {
            const int length = ParseInt(mark + kMarkSize + 1, 0);
            if (length > 0) {
                *offset = line_start + (mark - line) + static_cast<long>(kPrefixSize);
                return length;
            }
        }
        line_start = std::ftell(file->stream);
    }
    if (std::ferror(file->stream) == 0) return 0;
    CallFailure failure("fgets", errno);
    failure.file = file->path;
    ReportCallFailure(failure);
    return -1;
}

}  // namespace patrol
