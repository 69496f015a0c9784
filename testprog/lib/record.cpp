#include "lib/record.h"

#include <poll.h>
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <iterator>

namespace testprog {

namespace {

enum RecordType : unsigned { kLog = 1, kStatus = 2, kProgress = 3, kDiskInfo = 4, kProcess = 6 };

// The field has room for two hexadecimal digits.
constexpr ptrdiff_t kMaxLines = 0xff;
constexpr int kLookMilliseconds = 100;

// A pipe that polls as writable takes at least PIPE_BUF bytes at once, more than a short record.
bool HasRoom(int fd, int milliseconds) {
    pollfd room{fd, POLLOUT, 0};
    return poll(&room, 1, milliseconds) != 0;
}

// Waits for room; returns false once SIGTERM is held back and there is still none.
bool AwaitRoom(int fd) {
    sigset_t pending;
    do {
        if (HasRoom(fd, kLookMilliseconds)) return true;
        sigemptyset(&pending);
        sigpending(&pending);
    } while (sigismember(&pending, SIGTERM) != 1);
    return false;
}

bool WriteAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        if (!AwaitRoom(fd)) return false;
        // A write of more could wait where no signal reaches it.
        const ssize_t count = write(fd, bytes.data(), std::min<size_t>(bytes.size(), PIPE_BUF));
        if (count > 0) {
            bytes.remove_prefix(static_cast<size_t>(count));
        } else if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
            return false;
        }
    }
    return true;
}

}  // namespace

std::string Format(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    std::string text(length < 0 ? 0 : static_cast<size_t>(length), '\0');
    va_start(arguments, format);
    std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    va_end(arguments);
    return text;
}

std::string Printable(std::string_view text) {
    std::string result;
    std::copy_if(text.begin(), text.end(), std::back_inserter(result),
                 [](char c) { return static_cast<unsigned char>(c) > 31; });
    return result;
}

std::string TimeStamp() {
    timeval now = {};
    gettimeofday(&now, nullptr);
    tm local = {};
    localtime_r(&now.tv_sec, &local);
    const auto micro = static_cast<int>(now.tv_usec);
    return Format("%02d/%02d/%02d %02d:%02d:%02d %03d.%03d", local.tm_year % 100, local.tm_mon + 1,
                  local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, micro / 1000,
                  micro % 1000);
}

std::string FormatRecord(unsigned type, std::string_view program, std::string_view device,
                         std::string_view body) {
    const auto lines =
        std::clamp(std::count(body.begin(), body.end(), '\n'), ptrdiff_t{1}, kMaxLines);
    const std::string header =
        Format("0x%02x,0x%02x,%-16.16s,%-16.16s,\n", type, static_cast<unsigned>(lines),
               Printable(program).c_str(), Printable(device).c_str());
    const auto size = static_cast<unsigned>(header.size() + body.size());
    std::string record = Format("%s,0x%08x,%s", "ONLPTL", size, header.c_str());
    return record.append(body);
}

RecordWriter::RecordWriter(int fd, std::string_view program, std::string_view device)
    : fd_(fd), program_(program), device_(device) {}

bool RecordWriter::Log(LogLevel level, std::string_view id, std::string_view text) const {
    return Send(kLog, Format("0x%02x,%-5.5s,%s,%s\n", static_cast<unsigned>(level),
                             Printable(id).c_str(), TimeStamp().c_str(), Printable(text).c_str()));
}

bool RecordWriter::Status(EndCode code, unsigned flags, uint32_t next_address,
                          std::string_view text) const {
    std::string body =
        Format("0x%02x,0x%02x,0x%08x,", static_cast<unsigned>(code), flags & 0xffU, next_address);
    return Send(kStatus, body.append(text).append("\n"));
}

std::string ProgressBody(const Progress& progress) {
    return Format("0x%08x,0x%08x,0x%02x,0x%02x,Pass=%ld\n", progress.run_time, progress.limit,
                  progress.level & 0xffU, progress.percent & 0xffU, progress.passes);
}

bool RecordWriter::SendProgress(const Progress& progress) const {
    return !HasRoom(fd_, 0) || Send(kProgress, ProgressBody(progress));
}

bool RecordWriter::SendDiskInfo(const DiskInfo& info) const {
    return Send(
        kDiskInfo,
        Format("0x%08x,0x%04x,0x%02x,%-16.16s,%-4.4s\n", info.capacity,
               static_cast<unsigned>(info.bytes_per_sector), static_cast<unsigned>(info.bus_type),
               Printable(info.serial_number).c_str(), Printable(info.firmware).c_str()));
}

bool RecordWriter::LogRotated() const { return Send(kProcess, Format("0x%08x\n", 1U)); }

bool RecordWriter::Send(unsigned type, const std::string& body) const {
    return WriteAll(fd_, FormatRecord(type, program_, device_, body));
}

}  // namespace testprog
