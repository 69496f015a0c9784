// patrolctl faults: what is to be replaced, and putting it aside.

#include <cstdio>

#include "commands/commands.h"
#include "commands/common.h"
#include "model/times.h"
#include "show/escape.h"

namespace patrolctl {
namespace {

std::string Text(const FaultStore& store, bool colour) {
    Table table({"ID", "LAST", "COUNT", "UNIT", "DEVICE", "KEPT", "SUMMARY"});
    for (const Fault& fault : store.list) {
        table.Add({Cell(fault.id, Colour::kRed), fault.last == 0 ? "" : PlainTime(fault.last),
                   std::to_string(fault.count), fault.fru, fault.device,
                   fault.stored ? "in the store" : "as a report", fault.summary});
    }
    return store.list.empty() && store.faults.empty() ? "No fault is open.\n" : table.Text(colour);
}

int Clear(const Options& options, const FaultStore& store) {
    const Fault fault = FindFault(options.places, store, options.fault_id);
    const std::string complaint = fault.path.empty()
                                      ? "no fault with the ID \"" + options.fault_id +
                                            "\" is open; \"patrolctl faults\" shows which are"
                                      : ClearFault(options.places, fault);
    if (!complaint.empty()) {
        PrintProblems(store.faults);
        PrintProblems({complaint});
        return kExitFailed;
    }
    Print(options.json ? JsonText({{"cleared", fault.id}})
                       : "Cleared " + ForTerminal(fault.id) + ".\n");
    return kExitOk;
}

}  // namespace

int RunFaults(const Options& options) {
    if (!PlacesKnown(options.places)) return kExitUnreadable;
    const FaultStore store = ReadFaults(options.places);
    if (!options.fault_id.empty()) return Clear(options, store);
    Json json = Json::array();
    for (const Fault& fault : store.list) json.push_back(FaultJson(fault));
    Print(options.json ? JsonText(json) : Text(store, options.colour));
    PrintProblems(store.faults);
    return StatusOf(store.faults);
}

}  // namespace patrolctl
