// What a disk says of itself.

#include <map>

#include "counters/counters.h"
#include "counters/json.h"
#include "lib/options.h"

namespace testprog {

namespace {

using Kind = Counter::Kind;

using Values = std::map<std::string, std::string>;

struct Named {
    const char* name;
    Kind kind;
    const char* what;
};

constexpr Named kValues[] = {
    {"nvme_smart_health_information_log.media_errors", Kind::kUncorrected, "media errors"},
    {"nvme_smart_health_information_log.num_err_log_entries", Kind::kCorrected,
     "entries in its error log"},
    {"ata_smart_error_log.summary.count", Kind::kCorrected, "entries in its error log"},
    {"scsi_error_counter_log.read.total_uncorrected_errors", Kind::kUncorrected,
     "uncorrected read errors"},
    {"scsi_error_counter_log.read.errors_corrected_by_rereads_rewrites", Kind::kCorrected,
     "repeated reads"},
    {"scsi_error_counter_log.write.total_uncorrected_errors", Kind::kUncorrected,
     "uncorrected write errors"},
    {"scsi_grown_defect_list", Kind::kCorrected, "replaced blocks"},
};

// Attributes of ATA disks, by number. Many more exist, but no two makers agree on their raw values.
constexpr Named kAttributes[] = {
    {"5", Kind::kCorrected, "replaced sectors"},
    {"187", Kind::kUncorrected, "uncorrected errors"},
    {"197", Kind::kUncorrected, "sectors that cannot be read"},
    {"198", Kind::kUncorrected, "sectors that its own test cannot read"},
    {"199", Kind::kCorrected, "errors of the cable"},
};

std::string Value(const Values& values, const std::string& name) {
    const auto found = values.find(name);
    return found == values.end() ? "" : found->second;
}

// "/dev/sda (MODEL SERIAL)".
std::string PartName(const std::string& device, const Values& values) {
    std::string model = Value(values, "model_name");
    if (model.empty()) model = Value(values, "scsi_model_name");
    const std::string serial = Value(values, "serial_number");
    if (model.empty() && serial.empty()) return device;
    return device + " (" + model + (model.empty() || serial.empty() ? "" : " ") + serial + ")";
}

}  // namespace

Counters SmartCounters(const std::string& device, const std::string& output) {
    const Values values = FlattenJson(output);
    const std::string part = PartName(device, values);
    Counters counters;
    const auto add = [&](const Named& named, const std::string& text) {
        const auto value = ParseNumber(text);
        if (value) counters.push_back({named.kind, part, named.what, *value});
    };
    const std::string passed = Value(values, "smart_status.passed");
    if (!passed.empty()) {
        counters.push_back({Kind::kFailing, part, "its SMART health", passed == "false" ? 1U : 0U});
    }
    for (const Named& named : kValues) add(named, Value(values, named.name));
    for (size_t i = 0;; ++i) {
        const std::string entry = "ata_smart_attributes.table[" + std::to_string(i) + "]";
        const std::string id = Value(values, entry + ".id");
        if (id.empty()) break;
        for (const Named& named : kAttributes) {
            if (id == named.name) add(named, Value(values, entry + ".raw.value"));
        }
    }
    return counters;
}

}  // namespace testprog
