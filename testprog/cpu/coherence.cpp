#include <sched.h>
#include <signal.h>

#include <algorithm>
#include <array>
#include <atomic>

#include "cpu/check.h"
#include "cpu/processors.h"
#include "lib/run.h"
#include "lib/trap.h"

namespace testprog {

namespace {

// A partner that gets no processor time for so long has been left without, not been found wrong.
constexpr double kPatience = 0.05;  // seconds
constexpr uint64_t kAdditions = 2000;
constexpr uint64_t kHandovers = 300;
constexpr size_t kLine = 8;  // words of a cache line

// What the two processors share, each part in cache lines of its own.
struct Shared {
    alignas(128) std::atomic<uint64_t> sum{0};
    alignas(128) std::atomic<uint64_t> flips{0};
    alignas(128) std::atomic<uint64_t> maximum{0};
    alignas(128) std::atomic<bool> taken{false};
    uint64_t guarded = 0;  // changed by whoever has taken it
    alignas(128) std::atomic<uint64_t> turn{0};
    alignas(128) std::array<std::atomic<uint64_t>, kLine> line{};
    alignas(128) std::atomic<bool> given_up{false};
    double end = Now() + kPatience;

    // Lets a waiting side go on; false once either has waited too long.
    bool Wait(unsigned* spins) {
        if (++*spins % 64 != 0) return true;
        sched_yield();
        if (Now() > end) given_up = true;
        return !given_up;
    }
};

// One side of the work that both do: `side` is 0 or 1. Returns what is wrong, if anything is.
using Side = Answer (*)(Shared& shared, uint64_t side, uint64_t variant);

Answer AddSide(Shared& shared, uint64_t side, uint64_t variant) {
    unsigned spins = 0;
    for (uint64_t i = 1; i <= kAdditions; ++i) {
        const uint64_t number = Rotate(variant, static_cast<unsigned>(i)) | 1U;
        shared.sum.fetch_add(number);
        shared.flips.fetch_xor(Rotate(number, side != 0 ? 9 : 0));
        uint64_t maximum = shared.maximum.load();
        while (maximum < 2 * i + side &&
               !shared.maximum.compare_exchange_weak(maximum, 2 * i + side)) {
        }
        while (shared.taken.exchange(true, std::memory_order_acquire)) {
            if (!shared.Wait(&spins)) return {0, 0};
        }
        shared.guarded += number;
        shared.taken.store(false, std::memory_order_release);
    }
    return {0, 0};
}

Answer JudgeSums(Shared& shared, uint64_t variant) {
    uint64_t sum = 0;
    uint64_t flips = 0;
    for (uint64_t i = 1; i <= kAdditions; ++i) {
        const uint64_t number = Rotate(variant, static_cast<unsigned>(i)) | 1U;
        sum += 2 * number;
        flips ^= number ^ Rotate(number, 9);
    }
    const Answer answers[] = {{sum, shared.sum},
                              {sum, shared.guarded},
                              {flips, shared.flips},
                              {2 * kAdditions + 1, shared.maximum}};
    return *std::find_if(std::begin(answers), std::end(answers) - 1,
                         [](const Answer& answer) { return answer.expected != answer.got; });
}

// The sides take turns to fill a line with words that the other one then compares.
Answer HandOverSide(Shared& shared, uint64_t side, uint64_t variant) {
    unsigned spins = 0;
    const auto word = [variant](uint64_t turn, size_t i) {
        return Rotate(variant + turn * 0x9e3779b97f4a7c15, static_cast<unsigned>(5 * i));
    };
    for (uint64_t turn = side; turn < kHandovers; turn += 2) {
        while (shared.turn.load(std::memory_order_acquire) != turn) {
            if (!shared.Wait(&spins)) return {0, 0};
        }
        for (size_t i = 0; i < kLine; ++i) {
            const uint64_t got = shared.line.at(i).load(std::memory_order_relaxed);
            if (turn > 0 && got != word(turn - 1, i)) {
                shared.given_up = true;
                return {word(turn - 1, i), got};
            }
            shared.line.at(i).store(word(turn, i), std::memory_order_relaxed);
        }
        shared.turn.store(turn + 1, std::memory_order_release);
    }
    return {0, 0};
}

// The processor after this one among those that may be used.
int PartnerOf(int processor, const std::vector<int>& processors) {
    const auto next = std::upper_bound(processors.begin(), processors.end(), processor);
    return next == processors.end() ? processors.front() : *next;
}

bool IsRight(const Answer& answer) { return answer.expected == answer.got; }

// Without `judge` the sides themselves compare all that there is.
Answer RunBoth(Side side, Answer (*judge)(Shared&, uint64_t), int partner, uint64_t variant) {
    Shared shared;
    std::array<Answer, 2> answers = {};
    std::array<std::optional<Trap>, 2> traps;
    const auto run = [&](size_t number) {
        traps.at(number) = Trapped([&] { answers.at(number) = side(shared, number, variant); });
    };
    bool both = false;  // have done their part
    {
        const BoundThread other(partner, [&](bool bound) {
            if (bound) run(1);
            both = bound;
        });
        if (!other.started()) return {0, 0};
        run(0);
    }
    // Nothing is in use here any more that would be lost with a signal.
    for (const auto& trap : traps) {
        if (trap) raise(trap->signal);
    }
    for (const Answer& answer : answers) {
        if (!IsRight(answer)) return answer;
    }
    return judge == nullptr || shared.given_up || !both ? Answer{0, 0} : judge(shared, variant);
}

}  // namespace

std::vector<Check> CoherenceChecks(const std::vector<int>& processors) {
    if (processors.size() < 2) return {};
    const auto check = [&processors](const char* name, Side side,
                                     Answer (*judge)(Shared&, uint64_t)) {
        return Check{name, 2, [processors, side, judge](uint64_t variant) {
                         const int partner = PartnerOf(sched_getcpu(), processors);
                         return RunBoth(side, judge, partner, variant);
                     }};
    };
    return {check("atomics", AddSide, JudgeSums), check("coherence", HandOverSide, nullptr)};
}

}  // namespace testprog
