#include "model/faults.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

#include "base/file.h"
#include "model/files.h"
#include "model/times.h"

namespace patrolctl {
namespace {

using Json = nlohmann::json;

constexpr size_t kMaxReport = 4 << 20;
constexpr int kStoreVersion = 1;

// The names in a directory, sorted. False with errno set when it cannot be listed.
bool ListDirectory(const std::string& path, std::vector<std::string>* names) {
    std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(path.c_str()), closedir);
    if (directory == nullptr) return false;
    errno = 0;
    while (const dirent* entry = readdir(directory.get())) names->emplace_back(entry->d_name);
    const int failure = errno;
    directory.reset();  // which may change errno
    std::sort(names->begin(), names->end());
    errno = failure;
    return failure == 0;
}

// The value of the first line KEY=VALUE; empty where there is none.
std::string Value(std::string_view text, const std::string& key) {
    std::string value;
    bool found = false;
    ForEachLine(text, [&](std::string_view line, size_t) {
        if (found || !BeginsWith(line, key + "=")) return;
        found = true;
        value = line.substr(key.size() + 1);
    });
    return value;
}

// The unit of a processor or memory report is the whole machine, so its name says what failed.
std::string KindOfReport(const std::string& name, const std::string& fru) {
    if (BeginsWith(fru, "HDD;")) return "HDD";
    if (EndsWith(name, "_cpu")) return "CPU";
    return EndsWith(name, "_mem") ? "Memory" : "Unknown";
}

Fault ParseReport(const std::string& name, const std::string& text) {
    constexpr std::string_view kDetail = "\nDETAIL=";
    constexpr std::string_view kPlace = "HDD;/SCSI";
    const size_t detail = text.find(kDetail);
    const std::string head = text.substr(0, detail);
    Fault fault;
    fault.id = name;
    fault.fru = Value(head, "FRU1");
    fault.kind = KindOfReport(name, fault.fru);
    if (BeginsWith(fault.fru, kPlace)) fault.device = fault.fru.substr(kPlace.size());
    fault.summary = Value(head, "SUMMARY");
    if (detail != std::string::npos) fault.detail = text.substr(detail + kDetail.size());
    // The key stands twice on its line; the second time has the zone.
    std::string time = Value(head, "TIME");
    time.erase(0, time.rfind('=') + 1);
    fault.first = fault.last = ParseIsoTime(time).value_or(0);
    return fault;
}

// The name of a report's backup copy without its ending; empty for another name.
std::string CopiedReport(const std::string& name) {
    for (const char* ending : {".bak", "_bak"}) {
        if (EndsWith(name, ending)) return name.substr(0, name.size() - std::strlen(ending));
    }
    return "";
}

void ReadReports(const std::string& directory, FaultStore* store) {
    std::vector<std::string> names;
    if (directory.empty()) return;
    if (!ListDirectory(directory, &names) && errno != ENOENT) {
        store->faults.push_back(directory + ": cannot be listed: " + std::strerror(errno));
    }
    for (const std::string& name : names) {
        if (!BeginsWith(name, "parts_")) continue;
        // A copy counts only where it is all that is left.
        if (std::binary_search(names.begin(), names.end(), CopiedReport(name))) continue;
        const std::string path = PathIn(directory, name);
        // Others may be allowed to write there.
        const FileText file = ReadText(path, kMaxReport, O_NOFOLLOW);
        if (file.missing()) continue;  // the agent has just taken it
        Fault fault = ParseReport(name, file.text);
        if (!file.Fault().empty() || fault.fru.empty()) {
            const std::string why = file.Fault().empty() ? "names no unit (FRU1)" : file.Fault();
            store->faults.push_back(Said(path, why));
        }
        if (!file.Fault().empty()) continue;
        fault.path = path;
        store->list.push_back(std::move(fault));
    }
}

std::string TextOf(const Json& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : "";
}

std::optional<Fault> ParseStored(const std::string& id, const std::string& text) {
    const Json json = Json::parse(text, nullptr, false);
    if (!json.is_object() || json.value("version", Json()) != kStoreVersion) return std::nullopt;
    const auto first = ParseIsoTime(TextOf(json, "first"));
    const auto last = ParseIsoTime(TextOf(json, "last"));
    const auto count = json.find("count");
    if (!first || !last || count == json.end() || !count->is_number_integer()) return std::nullopt;
    Fault fault;
    fault.id = id;
    fault.kind = TextOf(json, "kind");
    fault.device = TextOf(json, "device");
    fault.serial = TextOf(json, "serial");
    fault.fru = TextOf(json, "fru");
    fault.first = *first;
    fault.last = *last;
    fault.count = count->get<long>();
    fault.stored = true;
    const auto report = json.find("report");
    if (report != json.end() && report->is_object()) {
        fault.summary = TextOf(*report, "summary");
        fault.detail = TextOf(*report, "detail");
    }
    return fault;
}

void ReadStored(const std::string& directory, FaultStore* store) {
    constexpr std::string_view kEnding = ".json";
    std::vector<std::string> names;
    if (!ListDirectory(directory, &names) && errno != ENOENT) {
        store->faults.push_back(directory + ": cannot be listed: " + std::strerror(errno));
    }
    for (const std::string& name : names) {
        if (!EndsWith(name, kEnding) || name.size() == kEnding.size()) continue;
        const std::string path = PathIn(directory, name);
        const FileText file = ReadText(path, kMaxReport);
        if (file.missing()) continue;
        auto fault = ParseStored(name.substr(0, name.size() - kEnding.size()), file.text);
        if (!fault || !file.Fault().empty()) {
            const std::string why =
                file.Fault().empty() ? "is no fault of a form that is known" : file.Fault();
            store->faults.push_back(Said(path, why));
            continue;
        }
        fault->path = path;
        store->list.push_back(std::move(*fault));
    }
}

std::string Failure(const std::string& what, int error) {
    return what + ": " + std::strerror(error);
}

// Opens the folder "cleared" of a directory, which others may be allowed to write to: a folder that
// somebody else has put there is refused. Errno says why there is none.
patrol::Descriptor OpenCleared(int directory) {
    constexpr char kName[] = "cleared";
    if (mkdirat(directory, kName, 0750) != 0 && errno != EEXIST) return {};
    patrol::Descriptor folder(
        openat(directory, kName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status = {};
    if (!folder.ok() || fstat(folder.get(), &status) != 0) return {};
    if (status.st_uid == geteuid()) return folder;
    errno = EPERM;
    return {};
}

// Moves the file `name` of `directory` into the folder "cleared" there, as `start` and `end` put
// together; with a number between them where that name is taken. 0, or errno.
int MoveAside(const std::string& directory, const std::string& name, const std::string& start,
              const std::string& end) {
    const patrol::Descriptor from(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!from.ok()) return errno;
    const patrol::Descriptor to = OpenCleared(from.get());
    if (!to.ok()) return errno;
    std::string new_name = start + end;
    for (int i = 2; faccessat(to.get(), new_name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0; ++i) {
        new_name = start;
        new_name.append("-").append(std::to_string(i)).append(end);
    }
    return renameat(from.get(), name.c_str(), to.get(), new_name.c_str()) == 0 ? 0 : errno;
}

// Takes the lock of the fault store, which its writers hold for an instant. 0, or errno.
int LockStore(const std::string& directory, patrol::Descriptor* lock) {
    constexpr int kTries = 50;
    constexpr timespec kPause = {0, 50'000'000};
    lock->Reset(
        open((directory + "/.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!lock->ok()) return errno;
    for (int i = 0; i < kTries; ++i) {
        if (flock(lock->get(), LOCK_EX | LOCK_NB) == 0) return 0;
        if (errno != EWOULDBLOCK) return errno;
        nanosleep(&kPause, nullptr);
    }
    return EBUSY;
}

}  // namespace

FaultStore ReadFaults(const Places& places) {
    FaultStore store;
    const std::string closed = WhyClosed(places.data);
    if (closed.empty()) {
        ReadStored(places.data + "/faults", &store);
    } else {
        store.faults.push_back(Said(places.data, closed));
    }
    ReadReports(places.temp, &store);
    std::stable_sort(store.list.begin(), store.list.end(),
                     [](const Fault& a, const Fault& b) { return a.last > b.last; });
    return store;
}

Fault FindFault(const Places& places, const FaultStore& store, const std::string& id) {
    for (const Fault& fault : store.list) {
        if (fault.id == id) return fault;
    }
    Fault fault;
    const std::string path = places.data + "/faults/" + id + ".json";
    struct stat status = {};
    if (id.find('/') != std::string::npos || lstat(path.c_str(), &status) != 0) return fault;
    fault.id = id;
    fault.path = path;
    fault.stored = true;
    return fault;
}

std::string ClearFault(const Places& places, const Fault& fault) {
    const size_t slash = fault.path.rfind('/');
    const std::string directory = fault.path.substr(0, slash);
    const std::string name = fault.path.substr(slash + 1);
    const std::string stamp = FileStamp(std::time(nullptr));
    patrol::Descriptor lock;
    int error = fault.stored ? LockStore(places.data + "/faults", &lock) : 0;
    if (error == 0) {
        error = fault.stored ? MoveAside(directory, name, fault.id + "." + stamp, ".json")
                             : MoveAside(directory, name, name + "." + stamp, "");
    }
    if (error != 0) return Failure(fault.path + " cannot be moved aside", error);
    const std::string aside = name + "." + stamp;
    for (const char* ending : {".bak", "_bak"}) {
        if (!fault.stored) MoveAside(directory, name + ending, aside, ending);
    }
    return "";
}

}  // namespace patrolctl
