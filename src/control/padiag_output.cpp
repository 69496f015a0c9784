#include "control/padiag_output.h"

#include <algorithm>
#include <cstring>

#include "base/kinds.h"
#include "base/text.h"
#include "msg/trace.h"
#include "report/parts.h"
#include "report/record_stream.h"
#include "report/records.h"
#include "report/status_record.h"

namespace patrol {
namespace {

constexpr size_t kLineSize = 512;
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

// The state between two lines. A saved stream is taken line by line and not by the lengths that it
// announces: whatever a test program has printed between its records costs none of them.
class OutputReader {
 public:
    OutputReader(const char* caller, RunningTest* test)
        : caller_(caller), test_(test), kind_name_(FindKind(test->kind)->name) {}

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
        if (check_testdata_head(head, test_->device_name.c_str(), &context) != 0) {
            Ptltrprintf("[%s] check_testdata_head failed.\n", caller_);
            return;
        }
        context_ = context;
        text_ = StatusText();
        first_line_ = true;
        in_record_ = (context_.type & (kTypeLog | kTypeStatus)) != 0;
        if (!in_record_) Ptltrprintf("[%s] No Want Data.\n", caller_);
    }

    void TakeBodyLine(const char* line) {
        if (context_.type == kTypeProgress) {
            CheckTestdataProgress(line, context_, test_);
            in_record_ = false;
            return;
        }
        if (first_line_) {
            Ptltrprintf("[%s] Data Research Start(type=%d).\n", caller_,
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
        switch (check_testdata_status(text_.bytes, context_, test_, kRunPadiag)) {
            case -1:
                Ptltrprintf("[%s] check_testdata_status failed.\n", caller_);
                break;
            case kEndNg:
                Ptltrprintf("[%s] %s Padiag Error End\n", caller_, kind_name_);
                ReportFault(caller_, *test_, kRunPadiag, text_.bytes, text_.size,
                            ResultText(text_.bytes));
                break;
            case kEndSkip:
                Ptltrprintf("[%s] %s Padiag Skipped\n", caller_, kind_name_);
                break;
            case kEndAbort:
                Ptltrprintf("[%s] %s Padiag Aborted\n", caller_, kind_name_);
                break;
            default:
                Ptltrprintf("[%s] %s Padiag End\n", caller_, kind_name_);
        }
    }

    const char* caller_;
    RunningTest* test_;
    const char* kind_name_;
    RecordContext context_;
    bool in_record_ = false;
    bool first_line_ = false;
    StatusText text_;
};

}  // namespace

void ReadPadiagOutput(const char* caller, RunningTest* test, FILE* file) {
    OutputReader reader(caller, test);
    // Parsers may look past the end of a line.
    char line[kLineSize + kRecordSlack] = {};
    while (std::fgets(line, kLineSize, file) != nullptr) reader.TakeLine(line);
}

}  // namespace patrol
