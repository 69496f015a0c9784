// One run of a test program, from its options to its closing record: what all of them share.
//
// A program's main reads
//
//     testprog::EnterBackground();
//     (options)
//     testprog::Run run("cputest", "Processor diagnosis", options.common);
//     outcome = complaint.empty() ? (the test) : Outcome{EndCode::kSkip, complaint};
//     return run.Finish(outcome);
//
// and the test is built of steps short enough (a millisecond of work, or one read of a disk) that
// asking Stop() after each of them keeps the promises below.

#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "lib/file.h"
#include "lib/log_file.h"
#include "lib/options.h"
#include "lib/record.h"

namespace testprog {

// Exit statuses.
constexpr int kExitOk = 0;       // OK, COMPLETED, CANCEL
constexpr int kExitNg = 1;       // NG
constexpr int kExitSkip = 2;     // SKIP
constexpr int kExitAbort = 3;    // ABORT
constexpr int kExitUnheard = 4;  // the closing record could not be written

// How a test, or one round of it, ended. kOk, kCompleted, kNg, kSkip or kAbort; a round that
// Stop() cut short ends with kOk and Run makes of it what is due.
struct Outcome {
    EndCode code = EndCode::kOk;
    std::string error;  // one line; for kNg, kSkip and kAbort
};

// What the hardware itself counted while a test ran.
struct Remark {
    bool faulty;       // an error that nothing corrected, or a part that says that it is failing
    std::string text;  // one line that names the part
};

// Seconds on a clock that is never set.
double Now();

// To be called first in main. Gives the process the lowest CPU and I/O priority, makes it the first
// choice of the out-of-memory killer, keeps SIGPIPE and SIGXFSZ from killing it, and holds SIGINT,
// SIGTERM and SIGHUP back for Run, which looks for them between steps and while it waits; so no
// handler ever interrupts anything. A standard descriptor that is closed is opened, for reading
// alone.
void EnterBackground();

class Run {
 public:
    // `program` and `title` are shown in the result; `common` is kept by reference. Sends the
    // first progress record. The log is named after the program, or after program and device
    // where `log_per_device` says so (several disks are tested at once).
    Run(std::string program, std::string title, const CommonOptions& common,
        bool log_per_device = false);

    // What a test draws its operands, patterns and places from: "-seed", or else a number that
    // differs from process to process. It stands in the log of every run, and in the error line of
    // a failure once a test has asked for it.
    uint64_t Seed();

    // `look` is called once, when the test is over (not after kSkip). A remark that is faulty makes
    // the outcome kNg, unless it is that already; every other is sent as a warning (log record
    // "W0808"). To be given what the counters were before the test.
    void AtEnd(std::function<std::vector<Remark>()> look);

    // To be asked between steps. Sends a progress record twice a second. True when the test is
    // to come to its end: cancelled, out of time, or nobody listens any more.
    bool Stop();

    // Whether the test was told to end, looked for at any time: for what may take long and is no
    // step of the test.
    bool Cancelled();

    // The pause that "-waitusec" and "-waitsec" ask for after a step; Stop() goes on meanwhile,
    // and its result is returned.
    bool Pause();

    // Waits so many seconds in the same way, for a test that makes room for others.
    bool Rest(double seconds);

    // Repeats `round` until the time given by "/runtime" is over, once without it, and counts
    // the rounds that were completed. A round with a result other than kOk is the last; of these
    // kCompleted counts. One that finds no memory ends with kAbort.
    Outcome Rounds(const std::function<Outcome()>& round);

    // What part of the round is done; for the progress records.
    void SetDone(uint64_t done, uint64_t whole);

    // For disks: the block at which the next test is to start, sent with the closing record
    // whatever it says. The record has 32 bits for it; an address beyond them is sent as 0.
    void SetNextAddress(uint64_t address);

    // Writes a line into the program's own log and into the controller's trace log.
    void Note(std::string_view text);

    // Writes a line into the program's own log alone.
    void AppendLog(std::string_view text);

    // Lines for people that stand in the result block, in the place of any that were set before.
    void SetDetails(std::vector<std::string> lines);

    // Sends the closing status record with its result block and returns the exit status. A
    // failure (kNg) is first announced to the system log and the agent. kOk becomes kCancel
    // where the run was cancelled. A reader that does not read holds it up until SIGTERM comes.
    int Finish(Outcome outcome);

    const RecordWriter& writer() const { return writer_; }

 private:
    // Sends a progress record, and leaves its body for whoever looks into the open files.
    void SendProgress();
    void Warn(const std::string& text);
    // Asks the looks of AtEnd and makes of the outcome what their remarks ask for.
    void TakeRemarks(Outcome* outcome);
    // Waits up to `seconds` for a signal that ends the run; 0 only looks.
    void AwaitCancel(double seconds);

    std::string program_;
    std::string title_;
    const CommonOptions& common_;
    RecordWriter writer_;
    LogFile log_;
    Descriptor shown_;
    double start_;
    uint32_t seed_;
    bool seed_used_ = false;
    std::vector<std::function<std::vector<Remark>()>> looks_;
    double next_progress_ = 0;
    bool cancelled_ = false;
    bool stopped_ = false;
    bool unheard_ = false;
    long passes_ = 0;
    unsigned percent_ = 0;
    uint32_t next_address_ = 0;
    std::vector<std::string> details_;
};

}  // namespace testprog
