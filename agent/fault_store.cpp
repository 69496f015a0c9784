#include "fault_store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>

#include "base/file.h"
#include "sys/profile.h"
#include "sys/replace_file.h"
#include "text.h"

namespace agent {
namespace {

using Json = nlohmann::ordered_json;

constexpr int kVersion = 1;
constexpr size_t kMaxFault = 4 << 20;

// "2026-11-21T22:15:07+00:00"
std::string IsoTime() {
    const std::time_t now = std::time(nullptr);
    std::tm local = {};
    localtime_r(&now, &local);
    char text[64];
    std::string time(text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S%z", &local));
    return time.insert(time.size() - 2, ":");
}

// That as a part of a file name: "20261121T221507".
std::string CompactTime() {
    constexpr size_t kWithoutZone = 19;
    std::string time = IsoTime().substr(0, kWithoutZone);
    const auto is_mark = [](char c) { return c == '-' || c == ':'; };
    time.erase(std::remove_if(time.begin(), time.end(), is_mark), time.end());
    return time;
}

// Holds the lock until the end of its life.
class StoreLock {
 public:
    explicit StoreLock(const std::string& path)
        : file_(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600)) {}

    Stored Take() const {
        constexpr int kTries = 20;
        constexpr timespec kPause = {0, 50'000'000};
        if (!file_.ok()) return Stored::kFailed;
        for (int i = 0; i < kTries; ++i) {
            if (flock(file_.get(), LOCK_EX | LOCK_NB) == 0) return Stored::kDone;
            if (errno != EWOULDBLOCK && errno != EINTR) return Stored::kFailed;
            nanosleep(&kPause, nullptr);
        }
        return Stored::kBusy;
    }

 private:
    patrol::Descriptor file_;
};

bool IsFault(const Json& fault) {
    return fault.is_object() && fault.value("version", Json()) == kVersion &&
           fault.value("first", Json()).is_string() &&
           fault.value("count", Json()).is_number_integer() && fault.value("count", Json()) >= 0 &&
           fault.value("count", Json()) < INT32_MAX;
}

// What a new report takes over from the fault that it adds to.
struct History {
    std::string first;
    long count = 0;
};

// The history of the fault in the file; one that has just begun where there is no file. A file that
// cannot be read as a fault is moved to `aside`, or beside what stands there already.
History Load(const std::string& path, const std::string& aside) {
    if (access(path.c_str(), F_OK) == 0) {
        const auto text = ReadRegularFile(path, kMaxFault);
        constexpr bool kMayThrow = false;
        const Json fault = Json::parse(text.value_or(""), nullptr, kMayThrow);
        if (IsFault(fault)) return {fault["first"], fault["count"]};
        std::string place = aside;
        for (int i = 2; access(place.c_str(), F_OK) == 0; ++i) {
            place = aside + "." + std::to_string(i);
        }
        std::rename(path.c_str(), place.c_str());
    }
    return {IsoTime(), 0};
}

// The fault after the report. Nothing else is taken over: what somebody has put into the file may
// be nested deeper than it can be written.
Json Enter(const History& history, const Report& report, const std::string& id,
           const std::string& serial) {
    Json fault;
    fault["version"] = kVersion;
    fault["id"] = id;
    fault["kind"] = report.kind;
    fault["device"] = report.device;
    fault["serial"] = serial;
    fault["fru"] = report.fru;
    fault["first"] = history.first;
    fault["last"] = IsoTime();
    fault["count"] = history.count + 1;
    fault["report"] = {{"name", report.name},           {"time", report.time},
                       {"flag", report.flag},           {"summary", report.summary},
                       {"operation", report.operation}, {"detail", report.detail}};
    return fault;
}

bool MakeDirectory(const std::string& path) {
    return mkdir(path.c_str(), 0750) == 0 || errno == EEXIST;
}

}  // namespace

std::string UnitId(const Report& report, const std::string& serial) {
    if (report.kind == "CPU") return "cpu";
    if (report.kind == "Memory") return "memory";
    if (report.kind != "HDD") return "unknown";
    constexpr size_t kLimit = 200;  // of a file name
    std::string id = "disk-" + (serial.empty() ? report.device : serial).substr(0, kLimit);
    for (char& c : id) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                           (c >= '0' && c <= '9') || c == '.' || c == '_' || c == '-';
        if (!plain) c = '_';
    }
    return id;
}

std::string SerialOf(const std::string& data, const std::string& device) {
    constexpr int kMaxDisks = 65536;
    if (device.empty()) return {};
    for (const char* name : {"/pat_new_sche.txt", "/pat_sche2.txt"}) {
        const patrol::ProfileReader schedule((data + name).c_str());
        const int count = std::min(schedule.Int("TEST_SCHEDULE", "hdd_all_num", 0), kMaxDisks);
        for (int i = 0; i < count; ++i) {
            const std::string section = "HDD_SCHEDULE " + std::to_string(i);
            patrol::Text<512> found;
            schedule.Field(section.c_str(), "device_name", "", &found);
            if (found.view() != device) continue;
            patrol::Text<512> serial;
            schedule.Field(section.c_str(), "serial_number", "", &serial);
            return std::string(serial.view());
        }
    }
    return {};
}

Stored Store(const std::string& data, const Report& report, const std::string& serial,
             long* count) {
    const std::string store = data + "/faults";
    if (!MakeDirectory(store)) return Stored::kFailed;
    const StoreLock lock(store + "/.lock");
    const Stored turn = lock.Take();
    if (turn != Stored::kDone) return turn;

    const std::string id = UnitId(report, serial);
    const std::string path = store + "/" + id + ".json";
    const std::string aside = store + "/" + id + ".damaged." + CompactTime();
    const Json fault = Enter(Load(path, aside), report, id, serial);
    constexpr int kIndent = 2;
    const std::string text = fault.dump(kIndent, ' ', false, Json::error_handler_t::replace) + "\n";
    patrol::FileReplacement file(path.c_str());
    if (!file.Write(text) || !file.Commit() || !patrol::SyncDirectory(path)) return Stored::kFailed;
    *count = fault["count"].get<long>();
    return Stored::kDone;
}

}  // namespace agent
