#include "control/command_line_builder.h"

namespace patrol {
namespace {

using Item = Text<64>;
using DeviceItem = Text<512>;

}  // namespace

void CommandLineBuilder::AddDevice(const char* device) {
    DeviceItem item("-dev ");
    item.Append(device);
    AddItem(item.c_str());
}

void CommandLineBuilder::AddDevice(const ProfileReader& from, const char* section,
                                   const char* default_value) {
    AddDevice(from.Value<512>(section, "dev", default_value).c_str());
}

void CommandLineBuilder::AddText(const char* option, const ProfileReader& from, const char* section,
                                 const char* key, const char* default_value) {
    AddText(option, from.Value<512>(section, key, default_value).c_str());
}

void CommandLineBuilder::AddText(const char* option, const char* text) {
    Item item;
    if (option != nullptr) {
        item.Assign(option);
        item.Append(" ");
    }
    item.Append(text);
    AddItem(item.c_str());
}

void CommandLineBuilder::AddNumber(const char* option, const ProfileReader& from,
                                   const char* section, const char* key, int default_value) {
    AddValue(option, from.Int(section, key, default_value));
}

void CommandLineBuilder::AddValue(const char* option, int value) {
    Item item;
    item.Format("%s %d", option, value);
    AddItem(item.c_str());
}

void CommandLineBuilder::AddWord(const char* word) { AddItem(word); }

void CommandLineBuilder::AddItem(const char* item) {
    if (!first_) line_.Append(" ");
    first_ = false;
    line_.Append(item);
}

}  // namespace patrol
