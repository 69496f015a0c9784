#include "msg/log_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "base/file.h"
#include "base/paths.h"
#include "base/run_mode.h"
#include "msg/event.h"

namespace patrol {
namespace {

LogBuffer patlog_buff;
LogBuffer pattrc_buff;
LogBuffer patdbg_buff;

constexpr int max_log_size = 512;       // KiB
constexpr int log_gen = 4;              // files of a stream
constexpr size_t kFieldsEstimate = 68;  // the padded fields and the separators of a line
constexpr size_t kOverlongSize = 4;     // what an over-long line is formatted into
constexpr size_t kCopiedPiece = 511;
// The count of copied lines stops here, below where an int would wrap.
constexpr int kMaxCountedLines = 0x70000000;

struct LogStream {
    const char* name;
    LogBuffer* buffer;
};

// In the order in which they are flushed.
constexpr LogStream kStreams[] = {
    {"pat_log", &patlog_buff},
    {"pat_trc", &pattrc_buff},
    {"pat_dbg", &patdbg_buff},
};

// Generation 0 is the file that is written to.
std::string GenerationPath(const char* stream, int generation) {
    return std::string(trc_name) + "/" + stream + std::to_string(generation) + ".log";
}

// Both tell the agent, and return -1.
int FailedCall(const char* call, int error) {
    event("E3895:System call error <<%s>>, errno:<<%d>>\n", call, error);
    return -1;
}

int FailedFile(const char* call, const std::string& path) {
    FailedCall(call, errno);
    event("E3899:<<file name = %s>>", path.c_str());
    return -1;
}

// The columns are padded, so that a log reads like a table. Their widths also make the length of a
// line known before it is formatted; they are what kFieldsEstimate counts.
int FormatLine(char* buffer, size_t size, const LogLine& line) {
    return snprintfx(buffer, size, "%s%-25s,%-20s,%s,%-16s,%s\n", line.host, line.stamp,
                     line.program, line.number, line.second, line.text);
}

// Makes room in a full set of generations; the buffered lines go either way.
int Rotate(const char* stream, int generations, LogBuffer* buffer) {
    if (generations == log_gen) {
        const std::string oldest = GenerationPath(stream, log_gen - 1);
        if (unlink(oldest.c_str()) != 0) return FailedFile("unlink", oldest);
    } else {
        for (int i = generations; i >= 1; --i) {
            const std::string from = GenerationPath(stream, i - 1);
            const std::string to = GenerationPath(stream, i);
            if (std::rename(from.c_str(), to.c_str()) != 0) {
                FailedCall("rename", errno);
                event("E3899:<<old file name = %s>>", from.c_str());
                event("E3899:<<new file name = %s>>", to.c_str());
                return -1;
            }
        }
    }
    buffer->Clear();
    return 0;
}

// Reads a line with its line feed, at most kCopiedPiece bytes of it. Unlike fgets it tells how many
// came, so that a NUL is copied like any other byte. 0 at the end.
size_t TakeLine(FILE* from, char (&line)[kCopiedPiece + 1]) {
    size_t size = 0;
    int c = 0;
    while (size < kCopiedPiece && c != '\n' && (c = std::getc(from)) != EOF) {
        line[size++] = static_cast<char>(c);
    }
    line[size] = '\0';
    return size;
}

// A copy and not a new name for the file: the next run goes on writing to the log under its own
// name.
int CopyFile(const std::string& to_path, const std::string& from_path) {
    const Stream from = OpenForReading(from_path.c_str());
    if (from == nullptr) return -1;
    Stream to = OpenForWriting(to_path.c_str());
    if (to == nullptr) return -1;
    copy_part_of_file(to.get(), from.get(), nullptr, nullptr);
    const bool whole = std::ferror(from.get()) == 0 && std::ferror(to.get()) == 0;
    return std::fclose(to.release()) == 0 && whole ? 0 : -1;
}

}  // namespace

int ptl_output_logfile(const char* stream, const LogLine& line) {
    const LogStream* found = nullptr;
    for (const LogStream& candidate : kStreams) {
        if (std::strcmp(candidate.name, stream) == 0) found = &candidate;
    }
    if (found == nullptr) return -1;
    LogBuffer* buffer = found->buffer;

    const size_t estimate = std::strlen(line.host) + std::strlen(line.number) + kFieldsEstimate +
                            std::strlen(line.text);
    if (buffer->size() + estimate > kLogBufferSize - 1) ptl_flush_buff(stream, buffer);
    // Not even an empty buffer has room for it. What is written in its place tells a reader that a
    // line is missing here.
    if (estimate > kLogBufferSize - 1) {
        char stump[kOverlongSize];
        FormatLine(stump, sizeof stump, line);
        LogBuffer alone{std::string_view(stump)};
        ptl_flush_buff(stream, &alone);
        return 0;
    }
    const size_t used = buffer->size();
    FormatLine(buffer->data() + used, kLogBufferSize - used, line);
    if (DebugRun()) ptl_flush_buff(stream, buffer);
    return 0;
}

int ptl_flush_buff(const char* stream, LogBuffer* buffer) {
    if (buffer->empty()) return 0;
    // A gap ends the row of files; those behind it are left alone.
    int generations = 0;
    int64_t newest_size = 0;
    struct stat status = {};
    while (generations < log_gen &&
           stat(GenerationPath(stream, generations).c_str(), &status) == 0) {
        if (generations == 0) newest_size = status.st_size;
        ++generations;
    }
    const auto buffered = static_cast<int64_t>(buffer->size());
    if (generations > 0 && newest_size + buffered > int64_t{max_log_size} * 1024) {
        return Rotate(stream, generations, buffer);
    }

    const std::string path = GenerationPath(stream, 0);
    const Descriptor file(
        open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK, 0666));
    if (!file.ok()) return FailedFile("fopen", path);
    const bool whole = WriteAll(file.get(), buffer->view());
    const int error = errno;
    // Lines that could not be written make room for newer ones.
    buffer->Clear();
    if (whole) return 0;
    // Once a run: it would be the same event for every line to come.
    static bool told = false;
    errno = error;
    return std::exchange(told, true) ? -1 : FailedFile("write", path);
}

void FlushLogBuffers() {
    if (trc_name == nullptr) return;
    for (const LogStream& stream : kStreams) ptl_flush_buff(stream.name, stream.buffer);
}

void ClearLogBuffers() {
    for (const LogStream& stream : kStreams) stream.buffer->Clear();
}

int ptl_log_backup() {
    static constexpr struct {
        const char* from;
        const char* to;
    } kPairs[] = {{"pat_log0", "pat_loge"},
                  {"pat_log1", "pat_logb"},
                  {"pat_trc0", "pat_trce"},
                  {"pat_trc1", "pat_trcb"}};
    const std::string directory = std::string(trc_name) + "/";
    for (const auto& pair : kPairs) {
        const std::string from = directory + pair.from + ".log";
        if (access(from.c_str(), R_OK) != 0) continue;
        if (CopyFile(directory + pair.to + ".log", from) != 0) return -1;
    }
    return 0;
}

int copy_part_of_file(FILE* to, FILE* from, const char* start, const char* end) {
    char line[kCopiedPiece + 1];
    bool copying = start == nullptr;
    int copied = 0;
    for (size_t size = TakeLine(from, line); size > 0; size = TakeLine(from, line)) {
        if (!copying) {
            copying = StartsWith(line, start);
            if (!copying) continue;
        } else if (end != nullptr && StartsWith(line, end)) {
            break;
        }
        std::fwrite(line, 1, size, to);
        if (copied < kMaxCountedLines) ++copied;
    }
    return copying ? copied : -1;
}

}  // namespace patrol
