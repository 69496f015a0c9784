#include "show/json.h"

#include "base/kinds.h"
#include "model/times.h"

namespace patrolctl {

Json ResultJson(const Result& result) {
    Json json;
    json["time"] = IsoTime(result.time);
    json["result"] = result.Word();
    json["kind"] = KindJson(result.kind);
    json["program"] = result.program;
    json["device"] = result.device;
    json["seconds"] = result.seconds;
    json["text"] = result.text;
    json["on_request"] = result.request.has_value();
    if (result.request) {
        json["passes"] = result.request->passes;
        if (result.request->has_progress) {
            json["percent_before"] = result.request->progress_before;
            json["percent_after"] = result.request->progress_after;
        }
    }
    return json;
}

Json FaultJson(const Fault& fault) {
    Json json;
    json["id"] = fault.id;
    json["kind"] = fault.kind;
    json["device"] = TextOrNull(fault.device);
    json["serial"] = TextOrNull(fault.serial);
    json["fru"] = fault.fru;
    json["first"] = TimeOrNull(fault.first);
    json["last"] = TimeOrNull(fault.last);
    json["count"] = fault.count;
    json["stored"] = fault.stored;
    json["summary"] = fault.summary;
    json["detail"] = fault.detail;
    return json;
}

Json TextOrNull(std::string_view text) { return text.empty() ? Json() : Json(text); }

Json TimeOrNull(std::time_t time) { return time == 0 ? Json() : Json(IsoTime(time)); }

Json KindJson(int kind) {
    const patrol::Kind* row = patrol::FindKind(kind);
    return row == nullptr ? Json() : Json(row->name);
}

std::string JsonText(const Json& json) {
    // Nothing but ASCII, so that it is harmless on a terminal, too.
    constexpr int kIndent = 2;
    return json.dump(kIndent, ' ', true, Json::error_handler_t::replace) + "\n";
}

}  // namespace patrolctl
