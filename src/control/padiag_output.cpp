#include "control/padiag_output.h"

#include <algorithm>
#include <cstring>

#include "base/kinds.h"
#include "base/text.h"
#include "msg/trace.h"
#include "report/parts.h"
#include "report/records.h"

namespace patrol {
namespace {

constexpr size_t kLineSize = 512;
constexpr size_t kDetailAt = 21;  // of the result block in a status text
constexpr char kClosing[] = "=====";

// A status text with zero bytes behind it, as the parsers want it.
struct StatusText {
    static constexpr size_t kMaxSize = 4095;
    char bytes[kMaxSize + kRecordSlack] = {};
    size_t size = 0;

    void Append(const char* line) {
        const size_t taken = std::min(std::strlen(line), kMaxSize - size);
        std::memcpy(bytes + size, line, taken);
        size += taken;
    }
};

// The state between two lines.
class OutputReader {
 public:
    explicit OutputReader(const PadiagOutput& output) : output_(output) {}

    void TakeLine(const char* line) {
        if (StartsWith(line, kRecordMagic)) {
            TakeHead(line);
        } else if (in_record_) {
            TakeBodyLine(line);
        }
    }

 private:
    void TakeHead(const char* line) {
        char head[kLineSize + kRecordSlack] = {};
        const size_t skipped = std::min(std::strlen(line), kPrefixSize);
        std::memcpy(head, line + skipped, std::strlen(line + skipped));
        RecordContext context;
        if (check_testdata_head(head, output_.device, &context) != 0) {
            Ptltrprintf("[%s] check_testdata_head failed.\n", output_.caller);
            return;
        }
        context_ = context;
        text_ = StatusText();
        first_line_ = true;
        in_record_ = (context_.type & (kTypeLog | kTypeStatus)) != 0;
        if (!in_record_) Ptltrprintf("[%s] No Want Data.\n", output_.caller);
    }

    void TakeBodyLine(const char* line) {
        if (context_.type == kTypeProgress) {
            CheckTestdataProgress(line, context_, output_.kind, output_.entry);
            in_record_ = false;
            return;
        }
        if (first_line_) {
            Ptltrprintf("[%s] Data Research Start(type=%d).\n", output_.caller,
                        static_cast<int>(context_.type));
        }
        first_line_ = false;
        if (context_.type != kTypeStatus) {
            in_record_ = false;
            return;
        }
        text_.Append(line);
        if (!StartsWith(line, kClosing)) return;
        in_record_ = false;
        TakeStatus();
    }

    void TakeStatus() {
        const int end_code =
            check_testdata_status(text_.bytes, context_, output_.schedule_index, output_.kind,
                                  output_.device, output_.entry, kRunPadiag);
        switch (end_code) {
            case -1:
                Ptltrprintf("[%s] check_testdata_status failed.\n", output_.caller);
                break;
            case kEndNg:
                Ptltrprintf("[%s] %s Padiag Error End\n", output_.caller, output_.kind_name);
                ReportFault();
                break;
            case kEndSkip:
                Ptltrprintf("[%s] %s Padiag Skipped\n", output_.caller, output_.kind_name);
                break;
            case kEndAbort:
                Ptltrprintf("[%s] %s Padiag Aborted\n", output_.caller, output_.kind_name);
                break;
            default:
                Ptltrprintf("[%s] %s Padiag End\n", output_.caller, output_.kind_name);
        }
    }

    void ReportFault() {
        set_parts_errinf(&errlog_inf, text_.bytes, text_.size);
        errlog_inf.detail.Assign(text_.bytes + std::min(std::strlen(text_.bytes), kDetailAt));
        if (patrol_parts_proc(errlog_inf, kRunPadiag, output_.device) != 0) {
            Ptltrprintf("[%s] parts_proc err !!", output_.caller);
        }
    }

    const PadiagOutput& output_;
    RecordContext context_;
    bool in_record_ = false;
    bool first_line_ = false;
    StatusText text_;
};

}  // namespace

void ReadPadiagOutput(const PadiagOutput& output, FILE* file) {
    OutputReader reader(output);
    // Parsers may look past the end of a line.
    char line[kLineSize + kRecordSlack] = {};
    while (std::fgets(line, kLineSize, file) != nullptr) reader.TakeLine(line);
}

}  // namespace patrol
