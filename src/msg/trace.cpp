#include "msg/trace.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>

#include "base/file.h"
#include "base/local_time.h"
#include "base/paths.h"
#include "base/text.h"

namespace patrol {
namespace {

constexpr off_t kMaxFileSize = 65536;
constexpr int kGenerations = 6;

using TraceText = Text<4096>;

// A ring of `count` line buffers. A slot whose first byte is NUL is empty.
struct Ring {
    std::unique_ptr<char, decltype(&std::free)> slots{nullptr, std::free};
    int32_t count = 0;
    uint32_t line_size = 0;
    uint32_t next = 0;
    Text<4097> path;

    char* Slot(uint32_t index) const { return slots.get() + size_t{index} * line_size; }
    bool Usable() const { return slots != nullptr && count > 0; }
};

Ring ring;
bool traceflag = false;

std::string GenerationName(int generation) {
    return std::string(ring.path.view()) + "." + std::to_string(generation);
}

// Returns the head of a line of this process. A run writes hundreds of lines, so it is made once a
// second only.
const std::string& LineHead() {
    static std::string head;
    static std::time_t made_at = 0;
    static pid_t made_by = 0;
    const std::time_t now = std::time(nullptr);
    const pid_t pid = getpid();
    if (made_at == now && made_by == pid) return head;
    made_at = now;
    made_by = pid;
    const std::tm local = LocalTime(now);
    char host[65] = "";
    gethostname(host, sizeof host - 1);
    const char* remote = std::getenv("REMOTEHOST");

    Text<160> stamp;
    stamp.Format("%04d/%02d/%02d %02d:%02d:%02d %u %s (", local.tm_year + 1900, local.tm_mon + 1,
                 local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                 static_cast<unsigned>(pid), host);
    head.assign(stamp.view());
    if (remote != nullptr) head += remote;
    head += "):";
    return head;
}

// Puts a line into the next slot, over what stood there.
void PutLine(const char* text) {
    const std::string& head = LineHead();
    const size_t room = ring.line_size - 1;
    const size_t length = std::strlen(text);
    const size_t head_size = std::min(head.size(), room - std::min(length, room / 2));
    const size_t text_size = std::min(length, room - head_size);

    if (ring.next >= static_cast<uint32_t>(ring.count)) ring.next = 0;
    char* slot = ring.Slot(ring.next++);
    std::memcpy(slot, head.data(), head_size);
    std::memcpy(slot + head_size, text, text_size);
    slot[head_size + text_size] = '\0';
}

// Opens the trace file for appending, and rotates it first when it has grown too large.
Descriptor OpenForAppending() {
    constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    Descriptor file(open(ring.path.c_str(), kFlags, 0666));
    struct stat status = {};
    // Even a file that cannot be opened may be one that can be moved out of the way.
    const int found = file.ok() ? fstat(file.get(), &status) : stat(ring.path.c_str(), &status);
    if (found == 0 && status.st_size > kMaxFileSize) {
        tr_rotate();
        file.Reset(open(ring.path.c_str(), kFlags, 0666));
    }
    return file;
}

// trprintf with its arguments in a list.
[[gnu::format(printf, 1, 0)]] int PutFormatted(const char* format, va_list arguments) {
    if (!ring.Usable()) return -1;
    TraceText text;
    text.FormatList(format, arguments);
    PutLine(text.c_str());
    return 0;
}

}  // namespace

int trinit(const char* path, uint32_t line_size, int32_t count) {
    ring = Ring();
    if (count < 0 || line_size < 2) return -1;
    // Not by new, which has no room for its exception where memory is this short.
    ring.slots.reset(static_cast<char*>(std::calloc(static_cast<size_t>(count), line_size)));
    if (ring.slots == nullptr) return -1;
    ring.path.Assign(path);
    ring.count = count;
    ring.line_size = line_size;
    return 0;
}

int trprintf(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = PutFormatted(format, arguments);
    va_end(arguments);
    return result;
}

int trflush() {
    if (!ring.Usable()) return -1;
    const Descriptor file = OpenForAppending();
    if (!file.ok()) return -1;
    const auto count = static_cast<uint32_t>(ring.count);
    for (uint32_t i = 0; i < count; ++i) {
        const char* slot = ring.Slot((ring.next + i) % count);
        if (slot[0] != '\0') WriteAll(file.get(), slot);
    }
    return trpurge();
}

int trpurge() {
    if (!ring.Usable()) return -1;
    for (int32_t i = 0; i < ring.count; ++i) {
        char* slot = ring.Slot(static_cast<uint32_t>(i));
        // A write would copy the page in every child.
        if (slot[0] != '\0') slot[0] = '\0';
    }
    return 0;
}

int tr_rotate() {
    if (!ring.Usable()) return -1;
    for (int i = kGenerations - 2; i >= 0; --i) {
        mv_if_exist(GenerationName(i).c_str(), GenerationName(i + 1).c_str());
    }
    return mv_if_exist(ring.path.c_str(), GenerationName(0).c_str());
}

int mv_if_exist(const char* from, const char* to) { return std::rename(from, to); }

int Ptltrprintf(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = PutFormatted(format, arguments);
    va_end(arguments);
    return result == 0 ? trflush() : -1;
}

int inttrace(int command) {
    if (traceflag || command >= 2) return command;
    const char* directory = DirectoryVariable("KVX_log");
    if (directory == nullptr) return 0;
    Text<4097> path;
    path.Format("%s/ana_io.trc", directory);
    const int result = trinit(path.c_str(), 1024, 1);
    if (result == 0) traceflag = true;
    return result;
}

void endtrace() {
    if (!traceflag) return;
    traceflag = false;
    trpurge();
}

int outtrace(const char* text) { return Ptltrprintf("[for parts], %s\n", text); }

int OutTracef(const char* format, ...) {
    TraceText text;
    va_list arguments;
    va_start(arguments, format);
    text.FormatList(format, arguments);
    va_end(arguments);
    return outtrace(text.c_str());
}

}  // namespace patrol
