// The message catalogue, the formatter, and the logs and the trace that the texts go to.

#include "msg/catalogue.h"
#include "msg/format.h"
#include "msg/ptl_printf.h"
#include "msg/trace.h"
#include "support.h"

using namespace patrol_fuzz;

namespace {

// A format without arguments: every "%%" is one, all else stands as it is.
std::string Plain(const std::string& format) {
    std::string text;
    for (size_t i = 0; i < format.size(); ++i) {
        text += format[i];
        if (format[i] == '%' && format[i + 1] == '%') ++i;
    }
    return text;
}

}  // namespace

FUZZ_TARGET(messages) {
    const Agent& agent = Agent::Fresh();
    agent.Write("data/pat_msge.txt", input.Text());
    ptl_set_msglist();
    const std::string stamp = input.Word(26), device = input.Word(16), id = input.Word(5);
    const std::string text = input.Word(6000);
    const auto number = input.Number(INT64_MIN, INT64_MAX);
    const auto small = input.Number<int8_t>(INT8_MIN, INT8_MAX);

    // A last "\0" is there to be looked at.
    Check(FormatMessage(text, nullptr, 0) == Plain(text), "a format without arguments stands",
          text);
    const RecordHeader header = {stamp.c_str(), device.c_str(), id.c_str(), device.c_str()};
    constexpr unsigned kAll = kToLog | kToSystemLog | kToTrace | kToDebug | kToEvent;
    Check(ptl_printf(kRelayed | kAll, &header, text.c_str(), text, number, small) == 0,
          "a relayed text is sent");
    for (const CatalogueEntry& entry : global_msg_list) {
        if (entry.number.empty()) break;
        Check(ptl_printf(kByNumber | kAll, &header, entry.number.c_str(), text, number, small) ==
                  (entry.number.size() == 5 ? 0 : -1),
              "a message of the catalogue is sent", entry.number.c_str());
    }
    Check(ptl_printf(kByNumber | kAll, nullptr, "E0000") == -1, "an unknown number is not sent");
    FlushLogBuffers();
    Check(agent.Read("log/pat_log0.log") == agent.Read("log/pat_trc0.log"),
          "the logs hold the same");

    const auto line_size = input.Number<uint32_t>(2, 5000);
    trinit(agent.Path("log/trace").c_str(), line_size, 2);
    Ptltrprintf("%s", text.c_str());
    const size_t traced = agent.Read("log/trace").size();
    Check(traced > 0 && traced < line_size, "a trace line is cut at its slot");
    trinit("", 0, 0);
}
