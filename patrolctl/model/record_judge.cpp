#include "model/record_judge.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "base/kinds.h"
#include "base/text.h"
#include "model/files.h"
#include "msg/ptl_printf.h"
#include "report/history.h"
#include "report/record_stream.h"
#include "report/records.h"
#include "report/status_record.h"

namespace patrolctl {
namespace {

constexpr size_t kMaxOnRequestLine = 511;
constexpr size_t kMaxOnRequestText = 4095;
constexpr size_t kMaxHistoryText = 80;
constexpr size_t kMaxLogText = 106;
constexpr char kClosing[] = "=====";

std::string Quoted(std::string_view text) {
    constexpr size_t kEnough = 60;
    const std::string shown(text.substr(0, kEnough));
    return "\"" + shown + (text.size() > kEnough ? "\"..." : "\"");
}

// Whether the whole of a field is one number, blanks around it aside.
bool IsNumber(std::string_view field) {
    const std::string text(field);
    char* end = nullptr;
    std::strtoull(text.c_str(), &end, 0);
    return end != text.c_str() &&
           text.find_first_not_of(' ', static_cast<size_t>(end - text.c_str())) ==
               std::string::npos;
}

bool Controls(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7f;
    });
}

// The kind whose test program the name begins with; null for none.
const patrol::Kind* KindOfProgram(std::string_view program) {
    for (const patrol::Kind& kind : patrol::kKinds) {
        if (patrol::StartsWith(program, kind.program)) return &kind;
    }
    return nullptr;
}

// What the prefix at the start of `bytes`, 18 at least, announces.
std::optional<int> Announced(std::string_view bytes) {
    return patrol::AnnouncedLength(std::string(bytes.substr(0, patrol::kPrefixSize)).c_str());
}

std::string Places(unsigned destination) {
    std::string places;
    const auto add = [&](unsigned flag, const char* place) {
        if ((destination & flag) != 0)
            places += (places.empty() ? "" : " and ") + std::string(place);
    };
    add(patrol::kToEvent, "the agent");
    add(patrol::kToSystemLog, "the system log");
    add(patrol::kToTrace, "\"pat_trc0.log\"");
    return places;
}

}  // namespace

// The content of a record: its header line and its body, and where it stands in the stream.
class RecordJudge::Body {
 public:
    Body(std::string_view content, uint64_t at) : at_(at), size_(content.size()), bytes_(content) {
        // The parsers may look behind the end.
        bytes_.append(patrol::kRecordSlack, '\0');
        head_ = patrol::ParseHead(bytes_.c_str());
    }

    const patrol::RecordHead& head() const { return head_; }
    const char* text() const { return bytes_.c_str() + patrol::kHeaderSize; }
    // The bytes of the header and of the body, those that came.
    std::string_view Head(size_t from, size_t count) const {
        return std::string_view(bytes_).substr(from,
                                               std::min(count, size_ - std::min(from, size_)));
    }
    std::string_view Text(size_t from, size_t count = std::string_view::npos) const {
        if (size_ <= patrol::kHeaderSize + from) return {};
        return std::string_view(bytes_).substr(0, size_).substr(patrol::kHeaderSize + from, count);
    }
    // Where these bytes stand in the stream.
    uint64_t HeadAt(size_t from) const { return at_ + from; }
    uint64_t TextAt(size_t from) const { return at_ + patrol::kHeaderSize + from; }
    size_t size() const { return size_; }

 private:
    uint64_t at_;
    size_t size_;
    std::string bytes_;
    patrol::RecordHead head_;
};

void RecordJudge::Fault(uint64_t at, const std::string& text) {
    ++faults_;
    tell_({at, true, text});
}

void RecordJudge::Expect(bool holds, uint64_t at, const std::string& rule,
                         const std::string& expected, std::string_view found) {
    if (!holds) Fault(at, rule + ": expected " + expected + ", found " + Quoted(found));
}

void RecordJudge::Take(std::string_view bytes) {
    bytes_ += bytes;
    while (TakeOne()) {
    }
    bytes_.erase(0, used_);
    used_ = 0;
}

// Takes a record, or as many stray bytes as the controller passes over at once. False when more
// bytes are needed first.
bool RecordJudge::TakeOne() {
    const std::string_view rest = Rest();
    if (rest.size() < patrol::kPrefixSize) return false;
    const std::optional<int> announced = Announced(rest);
    if (!announced) {
        TakeStray();
        return true;
    }
    const bool refused = *announced < 0 || *announced > patrol::kMaxBody;
    const size_t length = refused ? 0 : static_cast<size_t>(*announced);
    if (rest.size() - patrol::kPrefixSize < length) return false;
    EndStray(at_);
    Expect(rest[6] == ',', at_ + 6, "prefix", "a comma", rest.substr(6, 1));
    Expect(IsNumber(rest.substr(7, 10)), at_ + 7, "size", "a number such as 0x000000a4",
           rest.substr(7, 10));
    Expect(rest[17] == ',', at_ + 17, "prefix", "a comma", rest.substr(17, 1));
    if (refused) {
        Expect(false, at_ + 7, "size",
               "at most " + std::to_string(patrol::kMaxBody) + " bytes, or the test is given up",
               rest.substr(7, 10));
    }
    TakeRecord(rest.substr(patrol::kPrefixSize, length));
    Pass(patrol::kPrefixSize + length);
    return true;
}

void RecordJudge::TakeStray() {
    if (!stray_) {
        stray_ = true;
        stray_from_ = at_;
        Fault(at_, "prefix: expected \"ONLPTL,\", found " +
                       Quoted(Rest().substr(0, patrol::kPrefixSize)) +
                       (records_ > 0 ? "; is the size of the record before it right?" : ""));
    }
    Pass(patrol::kPrefixSize);
}

void RecordJudge::EndStray(uint64_t next) {
    if (!stray_) return;
    stray_ = false;
    Note(stray_from_, "the controller passes over " + std::to_string(next - stray_from_) +
                          " bytes, in steps of 18");
}

void RecordJudge::End() {
    const std::string_view rest = Rest();
    const std::optional<int> announced =
        rest.size() < patrol::kPrefixSize ? std::nullopt : Announced(rest);
    if (announced) {
        const size_t there = rest.size() - patrol::kPrefixSize;
        Fault(at_ + 7, "size: expected " + std::to_string(*announced) +
                           " bytes behind the prefix, found " + std::to_string(there) +
                           "; the record is lost");
    } else if (!rest.empty()) {
        Expect(false, at_, "prefix", "18 bytes that begin with \"ONLPTL,\"", rest);
    }
    Pass(rest.size());
    EndStray(at_);
    if (stopped_) {
        Note(at_, "end: a pass has no result of this test");
    } else if (!ended_) {
        Fault(at_,
              "end: expected a status record; a pass has no result of this test, an on-request "
              "run enters it as ABORT");
    }
}

void RecordJudge::TakeRecord(std::string_view content) {
    ++records_;
    const Body body(content, at_ + patrol::kPrefixSize);
    if (content.size() < patrol::kHeaderSize) {
        return Fault(at_ + 7, "size: expected at least " + std::to_string(patrol::kHeaderSize) +
                                  " bytes for the header line, found " +
                                  std::to_string(content.size()));
    }
    JudgeHead(body);
    if (ended_) {
        Fault(at_, "order: expected nothing behind the status record; this is not read");
        return;
    }
    if (stopped_) return Note(at_, "a pass does not read this");
    stopped_ = body.head().type == 0 || body.head().lines == 0;
    if (stopped_) return Note(at_, "the controller stops the test here");
    Judge(body, body.head().type);
}

void RecordJudge::JudgeHead(const Body& body) {
    const auto comma = [&](size_t at) {
        Expect(body.Head(at, 1) == ",", body.HeadAt(at), "header", "a comma", body.Head(at, 1));
    };
    Expect(body.head().type != 0, body.HeadAt(0), "type", "one of 0x01, 0x02, 0x03, 0x04 and 0x06",
           body.Head(0, 4));
    comma(4);
    Expect(body.head().lines > 0, body.HeadAt(5), "lines", "a number above 0", body.Head(5, 4));
    comma(9);
    Expect(KindOfProgram(body.head().program.view()) != nullptr, body.HeadAt(10), "program",
           "cputest, memtest or hddtest", body.Head(10, 16));
    comma(26);
    comma(43);
    Expect(body.Head(44, 1) == "\n", body.HeadAt(44), "header", "a line feed", body.Head(44, 1));
    const std::string_view text = body.Text(0);
    const size_t nul = text.find('\0');
    if (nul != std::string_view::npos)
        Fault(body.TextAt(nul), "body: expected no NUL; the text ends there");
    Expect(!text.empty() && text.back() == '\n', body.TextAt(text.size()), "body",
           "a line feed at its end", text.substr(text.size() - std::min<size_t>(text.size(), 20)));
    const auto lines = std::count(text.begin(), text.end(), '\n');
    const int said = body.head().lines;
    // The field has room for two digits.
    Expect(said <= 0 || said == std::min<long>(lines, 0xff), body.HeadAt(5), "lines",
           std::to_string(lines) + " as the body has", body.Head(5, 4));
}

void RecordJudge::Judge(const Body& body, uint32_t type) {
    switch (type) {
        case patrol::kTypeLog:
            return JudgeLog(body);
        case patrol::kTypeStatus:
            return JudgeStatus(body);
        case patrol::kTypeProgress:
            return JudgeProgress(body);
        case patrol::kTypeHddInfo:
            return JudgeDiskInfo(body);
        default:
            return JudgeNotice(body);
    }
}

void RecordJudge::JudgeLog(const Body& body) {
    const patrol::LogRecord log = patrol::ParseLog(body.text());
    Expect(log.ValidLevel(), body.TextAt(0), "log level", "0x01 or 0x02", body.Text(0, 4));
    for (const size_t at : {size_t{4}, size_t{10}}) {
        Expect(body.Text(at, 1) == ",", body.TextAt(at), "log", "a comma", body.Text(at, 1));
    }
    const std::string_view rest = body.Text(11);
    const size_t comma = rest.find(',');
    Expect(comma != std::string_view::npos, body.TextAt(11), "log time", "a time that a comma ends",
           rest);
    const std::string_view text =
        comma == std::string_view::npos ? "" : rest.substr(comma + 1, rest.find('\n') - comma - 1);
    if (text.size() > kMaxLogText) {
        Note(body.TextAt(11 + comma + 1 + kMaxLogText),
             "the logs keep 106 characters of this text");
    }
    if (Controls(text) || Controls(body.Text(5, 5))) {
        Note(body.TextAt(5), "the logs keep no control characters");
    }
    if (log.ValidLevel()) {
        Note(at_, "log record " + std::string(log.id.view()) + ", to " + Places(log.destination) +
                      ": " + log.text);
    }
}

void RecordJudge::JudgeStatus(const Body& body) {
    const patrol::Status status = patrol::ParseStatus(body.text());
    Expect(status.ValidCode(), body.TextAt(0), "end code", "0x01 to 0x06", body.Text(0, 4));
    for (const size_t at : {size_t{4}, size_t{9}, size_t{20}}) {
        Expect(body.Text(at, 1) == ",", body.TextAt(at), "status", "a comma", body.Text(at, 1));
    }
    Expect(IsNumber(body.Text(5, 4)) && status.flag <= 7, body.TextAt(5), "flags",
           "a sum of 1, 2 and 4", body.Text(5, 4));
    const patrol::Kind* kind = KindOfProgram(body.head().program.view());
    const bool disk = kind != nullptr && kind->code == patrol::kKindHdd;
    const bool has_address = disk && status.HasAddress();
    if (has_address || status.Has(patrol::kFlagNextAddress)) {
        Expect(status.ValidAddress(), body.TextAt(10), "next address", "a number",
               body.Text(10, 10));
    }
    ended_ = true;
    if (!status.ValidCode() || (has_address && !status.ValidAddress())) {
        Note(at_, "the controller stops the test here, and enters nothing");
        return;
    }
    std::string text(status.HasText() ? patrol::ResultText(const_cast<char*>(body.text())) : "");
    const char* message = patrol::get_error_msg(text.c_str());
    const bool reported = status.CodeForCaller() == patrol::kEndNg;
    std::string verdict = "status: enters " +
                          std::string(patrol::kResultWords[patrol::HistoryResult(status.end_code)]);
    if (message != nullptr) verdict += " with the text " + Quoted(message);
    if (has_address)
        verdict += "; the next test begins at address " + std::string(status.address_field.view());
    if (reported) verdict += "; a part report goes to the agent";
    Note(at_, verdict);
    if (status.HasText()) {
        JudgeStatusText(body, status.end_code, reported);
    } else if (status.end_code != patrol::kEndOk && status.end_code != patrol::kEndCompleted) {
        Note(body.TextAt(5), "the history says no reason: flag 2, for a result block, is not set");
    }
}

void RecordJudge::JudgeStatusText(const Body& body, int end_code, bool reported) {
    constexpr size_t kTextAt = 21;
    const std::string_view text = body.Text(kTextAt);
    bool closed = false;
    std::string labels;
    size_t at = 0;
    ForEachLine(text, [&](std::string_view line, size_t) {
        if (line.size() > kMaxOnRequestLine) {
            Fault(body.TextAt(kTextAt + at),
                  "result block: expected lines of at most 511 characters, the most that an "
                  "on-request run reads");
        }
        closed = closed || BeginsWith(line, kClosing);
        for (const char* label : {"PROGRAM : ", "DEVICE  : ", "ERROR   : "}) {
            if (BeginsWith(line, label)) labels += label;
        }
        if (BeginsWith(line, "ERROR   : ") && line.size() > 9 + kMaxHistoryText) {
            Note(body.TextAt(kTextAt + at), "the history keeps 80 characters of this line");
        }
        at += line.size() + 1;
    });
    Expect(closed, body.TextAt(kTextAt), "result block",
           "a line that begins with \"=====\" at its end, without which an on-request run has no "
           "result",
           text.substr(text.size() - std::min<size_t>(text.size(), 20)));
    if (text.size() + kTextAt > kMaxOnRequestText) {
        Fault(body.TextAt(kMaxOnRequestText),
              "result block: expected at most 4095 characters of body, the most that an "
              "on-request run keeps");
    }
    const bool good = end_code == patrol::kEndOk || end_code == patrol::kEndCompleted ||
                      end_code == patrol::kEndCancel;
    if (!good && labels.find("ERROR") == std::string::npos) {
        Fault(body.TextAt(kTextAt),
              "result block: expected a line \"ERROR   : \", without which the "
              "history has no reason");
    }
    if (!reported) return;
    for (const char* label : {"PROGRAM : ", "DEVICE  : "}) {
        if (labels.find(label) != std::string::npos) continue;
        Fault(body.TextAt(kTextAt), "result block: expected a line " + Quoted(label) +
                                        ", from which the part report names the unit");
    }
}

void RecordJudge::JudgeProgress(const Body& body) {
    const patrol::ProgressRecord progress = patrol::ParseProgress(body.text());
    const std::string_view text = body.Text(0);
    const std::string_view seconds = text.substr(0, text.find(','));
    Expect(progress.has_seconds && IsNumber(seconds), body.TextAt(0), "progress seconds",
           "a number that a comma ends", seconds);
    Expect(progress.passes.has_value(), body.TextAt(0), "progress", "\"Pass=\" and a number", text);
    if (!progress.has_seconds) return;
    Note(at_, "progress: " + std::to_string(progress.seconds) + " s" +
                  (progress.passes ? ", passes " + std::to_string(*progress.passes) : ""));
}

void RecordJudge::JudgeDiskInfo(const Body& body) {
    const patrol::DiskInfoRecord info = patrol::ParseDiskInfo(body.text());
    Expect(info.capacity != 0, body.TextAt(0), "capacity", "a number above 0", body.Text(0, 10));
    Expect(info.sector_size != 0, body.TextAt(11), "bytes a sector", "a number above 0",
           body.Text(11, 6));
    if (info.capacity == 0 || info.sector_size == 0) return;
    Note(at_, "disk information: passed over");
}

void RecordJudge::JudgeNotice(const Body& body) {
    const patrol::NoticeRecord notice = patrol::ParseNotice(body.text());
    Expect(notice.Valid(), body.TextAt(0), "process", "1 or 2", body.Text(0, 10));
    if (notice.Valid()) Note(at_, "process notice: traced");
}

}  // namespace patrolctl
