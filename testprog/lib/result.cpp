#include "lib/result.h"

#include <algorithm>
#include <array>

namespace testprog {

namespace {

struct Words {
    const char* result;
    const char* summary;
};

// By end code, from EndCode::kOk on.
constexpr std::array<Words, 6> kWords{{{"OK", "No Error"},
                                       {"CANCEL", "Canceled"},
                                       {"COMPLETED", "Completed"},
                                       {"NG", "Error Ended"},
                                       {"SKIP", "Skipped"},
                                       {"ABORT", "Aborted"}}};

constexpr size_t kMaxDetails = 10;

std::string TimeText(const Extent& extent) {
    switch (extent.kind) {
        case Extent::Kind::kEndless:
            return "ENDLESS";
        case Extent::Kind::kMinutes:
            return Format("%ld [MINUTE]", extent.minutes);
        case Extent::Kind::kRound:
            break;
    }
    return "1 [ROUND]";
}

}  // namespace

std::string ResultBlock(const Result& result) {
    const Words& words = kWords.at(static_cast<size_t>(result.code) - 1);
    const std::string frame = std::string(61, '-') + "\n";
    std::string block = result.patrol ? "[[[[ PATROL DIAGNOSIS RESULT ]]]]\n"
                                      : "[[[[ DIAGNOSIS RESULT ]]]]       \n";
    block += frame;
    block += Format("PROGRAM : %s\n", Printable(result.program).c_str());
    block += Format("TITLE   : %s\n", Printable(result.title).c_str());
    block += Format("DEVICE  : %s\n", Printable(result.device).c_str());
    block += Format("OPTION  : LEVEL %ld\n", result.level);
    block += Format("          TIME  %s\n", TimeText(result.extent).c_str());
    block +=
        Format("RESULT  : %s\n", Format("%s ( PASS:%3ld )", words.result, result.passes).c_str());
    if (!result.error.empty()) {
        block += Format("ERROR   : %s\n", Printable(result.error).c_str());
    }
    for (size_t i = 0; i < std::min(result.details.size(), kMaxDetails); ++i) {
        block += Format("DETAIL  : %.160s\n", Printable(result.details[i]).c_str());
    }
    block += frame;
    block += Format("I0399:<<%s %s>>\n", Printable(result.program).c_str(), words.summary);
    block += std::string(78, '=');
    return block;
}

}  // namespace testprog
