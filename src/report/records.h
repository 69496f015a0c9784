// The records that a test program sends: header line, then a body by type.
//
// A reader hands over bodies as buffers with at least kRecordSlack zero bytes behind them, so fixed
// fields may be read whatever the body's length. Numbers are decimal, "0x" hexadecimal or
// leading-0 octal.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/running_test.h"
#include "base/text.h"

namespace patrol {

inline constexpr size_t kPrefixSize = 18;  // "ONLPTL,0x%08x,"
inline constexpr size_t kHeaderSize = 45;  // the header line with its line feed
inline constexpr size_t kRecordSlack = 128;
inline constexpr char kRecordMagic[] = "ONLPTL";

// Types of a record as the context keeps them. They are tested against a set of bits, so a progress
// record passes wherever log or status records do.
enum : uint32_t {
    kTypeLog = 1,
    kTypeStatus = 2,
    kTypeProgress = 3,
    kTypeHddInfo = 4,
    kTypeProcess = 8,
};

// End codes of a status record.
enum : int {
    kEndOk = 1,
    kEndCancel = 2,
    kEndCompleted = 3,
    kEndNg = 4,
    kEndSkip = 5,
    kEndAbort = 6,
};

struct RecordContext {
    uint32_t type = 0;
    int32_t lines = 0;
    Text<17> program;  // the test program's name
    Text<17> device;   // the device the controller launched the test for, whatever the record says
};

// Checks the header line at `record` and fills `context`. 0, or -1 for an unknown type or no lines
// (traced).
int check_testdata_head(const char* record, const char* device, RecordContext* context);

// Relays the text of a log body: to the trace-detail log, the agent, the system log, by its level
// and message id. 0, or -1 for an unknown level (traced).
int check_testdata_log(const char* body, const RecordContext& context);

// Takes the final status of `test`: for a disk the next address goes to the section of its Schedule
// index, a result text goes to the trace-detail log (its carriage returns are removed in
// place), the result to the history. Returns the end code for the caller, or -1 for a bad field
// (traced; nothing was entered); a next address without digits is one. An NG that brings a result
// text returns kEndOk: the text has said it. The flag for a faulty part returns kEndNg whatever the
// end code was.
//
// For a padiag run the padiag Schedule file and history are used instead, a result text is
// announced as an event (after which event_check of the test is 0), and at level 3 the progress is
// worked out from "lba_outfile.ini".
int check_testdata_status(char* body, const RecordContext& context, RunningTest* test,
                          int run_mode);

// Checks a disk information body and stores the capacity. 0, or -1 for no capacity or sector size
// (traced).
int check_testdata_hddinfo(const char* body, const RecordContext& context, uint32_t* capacity);

// 1 when the test program has rotated its own log, 0 for the other known notice, -1 for an unknown
// one (traced).
int check_testdata_proc(const char* body);

// Takes the run time of `test` and a pass count from a progress body. The pass count goes by the
// test program's name in the header, which may name another kind; names that do not begin with one
// of the three programs leave it alone.
void CheckTestdataProgress(const char* body, const RecordContext& context, RunningTest* test);

// Removes every carriage return from the first `length` bytes of `text` and ends it there; below 1
// the text becomes empty.
void cr_cutman(char* text, int length);

}  // namespace patrol
