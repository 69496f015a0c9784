// What the controller makes of a stream of records, and where the stream breaks the rules.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace patrolctl {

// A sentence about the record, or the fault, at a byte of the stream.
struct Remark {
    uint64_t at = 0;  // bytes before it
    bool fault = false;
    std::string text;
};

// Judges a stream piece by piece, record after record.
class RecordJudge {
 public:
    explicit RecordJudge(std::function<void(const Remark&)> tell) : tell_(std::move(tell)) {}

    // Takes what comes next of the stream, in pieces of any size.
    void Take(std::string_view bytes);

    // The stream has ended.
    void End();

    int records() const { return records_; }
    int faults() const { return faults_; }

 private:
    class Body;

    bool TakeOne();
    void TakeStray();
    void EndStray(uint64_t next);
    void TakeRecord(std::string_view content);
    void Judge(const Body& body, uint32_t type);
    void JudgeHead(const Body& body);
    void JudgeLog(const Body& body);
    void JudgeStatus(const Body& body);
    void JudgeStatusText(const Body& body, int end_code, bool reported);
    void JudgeProgress(const Body& body);
    void JudgeDiskInfo(const Body& body);
    void JudgeNotice(const Body& body);

    void Note(uint64_t at, const std::string& text) { tell_({at, false, text}); }
    void Fault(uint64_t at, const std::string& text);
    // A field that breaks its rule.
    void Expect(bool holds, uint64_t at, const std::string& rule, const std::string& expected,
                std::string_view found);

    std::function<void(const Remark&)> tell_;
    // What has come of the stream from `at_` on.
    std::string_view Rest() const { return std::string_view(bytes_).substr(used_); }
    void Pass(size_t count) {
        used_ += count;
        at_ += count;
    }

    std::string bytes_;
    size_t used_ = 0;          // of them
    uint64_t at_ = 0;          // bytes of the stream before the next record
    uint64_t stray_from_ = 0;  // where bytes that are no record began
    bool stray_ = false;
    bool ended_ = false;    // a status record was there,
    bool stopped_ = false;  // or a header that makes no sense, after which nothing is read
    int records_ = 0;
    int faults_ = 0;
};

}  // namespace patrolctl
