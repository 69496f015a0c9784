#include "sys/file_control.h"

#include <cerrno>
#include <string>

#include "base/paths.h"
#include "base/text.h"
#include "msg/call_failure.h"
#include "msg/ptl_printf.h"
#include "sys/retry.h"

namespace patrol {
namespace {

// Return false (reported) where the call fails. An entry that failed to close keeps its mark until
// the next attempt.
bool OpenEntry(FileEntry* entry, const char* mode) {
    ptl_printf(kTraceAndDebug, nullptr, "T1130", entry->path, mode);
    entry->stream = std::fopen(entry->path, (std::string(mode) + "e").c_str());
    if (entry->stream != nullptr) {
        entry->open = 1;
        return true;
    }
    CallFailure failure("fopen", errno);
    const std::string event_text = std::string("file name = ") + entry->path;
    failure.event_text = event_text.c_str();
    failure.file = entry->path;
    failure.mode = mode;
    ReportCallFailure(failure);
    return false;
}

bool CloseEntry(FileEntry* entry) {
    if (entry->stream == nullptr) {
        // It failed to close before: the stream is gone, only the mark was left.
        entry->open = 0;
        return true;
    }
    ptl_printf(kTraceAndDebug, nullptr, "T1131", entry->path);
    const bool closed = std::fclose(entry->stream) == 0;
    const int error = errno;
    entry->stream = nullptr;
    if (closed) {
        entry->open = 0;
        return true;
    }
    CallFailure failure("fclose", error);
    failure.file = entry->path;
    ReportCallFailure(failure);
    return false;
}

// Not isalpha: the compare is about ASCII, whatever the locale.
bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

int ptl_file_cntl(int operation, uint32_t mask, const char* mode) {
    int failures = 0;
    for (FileEntry* entry = f_cntl; entry->identifier != kFileTableEnd; ++entry) {
        if ((entry->identifier & mask) == 0) continue;
        if (operation == 1) {
            if (mode == nullptr) {
                ptl_printf(kTraceDetail, nullptr, "E3825", "ptl_file_cntl", 0);
                return -1;
            }
            if (entry->stream == nullptr && !OpenEntry(entry, mode)) return -1;
        } else if (entry->open == 1 && !CloseEntry(entry)) {
            ++failures;
        }
    }
    return failures;
}

int ptl_fseek(int index, long offset, int whence) {
    const FileEntry* entry = f_cntl;
    for (int i = 0; i < index && entry->identifier != kFileTableEnd; ++i) ++entry;
    if (index < 0 || entry->stream == nullptr) return -1;
    if (std::fseek(entry->stream, offset, whence) == 0) return 0;
    CallFailure failure("fseek", errno);
    failure.file = entry->path;
    ReportCallFailure(failure);
    // What is reported is where the seek was to count from, not how far it was to go.
    long position = 0;
    if (whence == SEEK_CUR) position = std::ftell(entry->stream);
    if (whence == SEEK_END) position = -1;
    ptl_printf(kTraceDetail, nullptr, "L1953", whence);
    ptl_printf(kTraceDetail, nullptr, "L1954", static_cast<int>(position));
    return -1;
}

Stream rfopen(const char* path, int tries, const char* mode) {
    if (path == nullptr) return nullptr;
    const std::string closing_mode = std::string(mode) + "e";
    for (; tries >= 1; --tries) {
        Stream stream(std::fopen(path, closing_mode.c_str()));
        if (stream != nullptr || errno != EINTR) return stream;
        RetryPause(kFilePauseDivisor);
    }
    return nullptr;
}

int ptl_strcmp(const char* a, const char* b, int n) {
    for (int i = 0; i < n; ++i) {
        if (IsLetter(a[i]) && IsLetter(b[i])) {
            if (Lower(a[i]) != Lower(b[i])) return -1;
        } else if (a[i] != b[i]) {
            return -1;
        } else if (a[i] == '\0') {
            return 0;
        }
    }
    return 0;
}

}  // namespace patrol
