#include "device_config.h"

#include "text.h"

namespace agent {
namespace {

class Writer {
 public:
    void Line(const std::string& line) { text_ += line + "\n"; }

    void Open(const std::string& type, const std::string& path, const std::string& more = "") {
        Line("  <dev type=\"" + type + "\" phypath=\"" + EscapeXml(path) + "\"" + more + ">");
    }

    void Attribute(const std::string& name, const std::string& value) {
        Line("    <attr name=\"" + name + "\">" + EscapeXml(value) + "</attr>");
    }

    // For what may be unknown.
    void AttributeIfAny(const std::string& name, const std::string& value) {
        if (!value.empty() && value != "0") Attribute(name, value);
    }

    void Close() { Line("  </dev>"); }

    const std::string& text() const { return text_; }

 private:
    std::string text_;
};

// What is left of the text when its line is to have room in the 98 characters that the controller
// takes of it.
std::string Identity(std::string text) {
    constexpr size_t kLimit = 60;
    while (EscapeXml(text).size() > kLimit) text.pop_back();
    return text;
}

void WriteMachine(const Machine& machine, Writer* out) {
    out->Open("SYSTEM", "/SYSTEM");
    out->AttributeIfAny("model", Identity(machine.model));
    out->AttributeIfAny("S/N", Identity(machine.serial));
    out->Close();
    out->Open("Partition", "/SYSTEM/PARTITION0", " path=\"0\"");
    out->Attribute("status", "ok");
    out->Close();
    out->Open("CPU_summary", "/PARTITION0/CPU");
    out->AttributeIfAny("number", std::to_string(machine.processors));
    out->Attribute("status", "ok");
    out->Close();
    out->Open("DIMM_summary", "/PARTITION0/DIMM");
    out->AttributeIfAny("size", std::to_string(machine.memory_bytes));
    out->Attribute("status", "ok");
    out->Close();
}

void WriteDisk(const Disk& disk, Writer* out) {
    out->Open("disk", disk.location + ":" + disk.device);
    out->Attribute(disk.scsi ? "scsi_type" : "type", "HDD");
    out->Attribute("S/N", disk.serial);
    out->Attribute("vendor", disk.vendor);
    out->Attribute("model", disk.model);
    out->AttributeIfAny("size", std::to_string(disk.bytes));
    out->Attribute("status", disk.status);
    out->Close();
}

}  // namespace

std::string DeviceConfig(const Machine& machine, const std::vector<Disk>& disks) {
    Writer out;
    out.Line("<?xml version=\"1.0\" encoding=\"UTF-8\"?>");
    out.Line("<!-- Written by patrol-inventory; what is changed here by hand does not last. -->");
    out.Line("<devconf>");
    WriteMachine(machine, &out);
    for (const Disk& disk : disks) WriteDisk(disk, &out);
    out.Line("  <dev type=\"SOFTWARE\" name=\"patrol\">");
    out.Close();
    out.Line("</devconf>");
    return out.text();
}

}  // namespace agent
