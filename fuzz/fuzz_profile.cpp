// Profile files: all four operations, one by one and as a batch, against the plain model.

#include "profile_model.h"
#include "support.h"

using namespace patrol_fuzz;
namespace model = profile_model;

namespace {

std::string Shown(const std::pair<int, std::string>& answer) {
    return std::to_string(answer.first) + " <" + answer.second + ">";
}

// A query into a block of exactly the promised size, so that a sanitizer sees its end.
std::pair<int, std::string> Ask(const char* section, const std::string& key, size_t size,
                                const std::string& path) {
    std::vector<char> result(section != nullptr ? size + 1 : size, '!');
    const int count = GetPrivateProfileString(section, key.c_str(), "d", result.data(),
                                              static_cast<int>(size), path.c_str());
    if (section != nullptr) return {count, result.data()};
    return {count, std::string(result.begin(), result.end())};
}

void CheckSame(const std::pair<int, std::string>& found,
               const std::pair<int, std::string>& expected) {
    Check(found == expected, "a query answers as the model does",
          Shown(found) + "\ninstead of " + Shown(expected));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    const Agent& agent = Agent::Fresh();
    const std::string path = agent.Path("data/p.ini");
    std::string now = input.ConsumeRandomLengthString(), before;
    agent.Write("data/p.ini", now);
    agent.Write("data/batch.ini", now);
    ProfileWriter batch(agent.Path("data/batch.ini").c_str());
    while (input.remaining_bytes() > 0) {
        const std::string section = Word(&input), key = Word(&input);
        std::string value = Word(&input);
        // The next read would take such a line for a header, or for two lines. No caller has one.
        if (key[0] == '[' || key.size() + value.size() > 500) value.clear();
        const size_t room = input.ConsumeIntegralInRange<size_t>(1, 2200);
        CheckSame(Ask(section.c_str(), key, room, path), model::String(now, section, key, room));
        CheckSame(Ask(nullptr, key, room, path), model::Names(now, room));
        CheckSame({GetPrivateProfileInt(section.c_str(), key.c_str(), 5, path.c_str()), ""},
                  {model::Int(now, section, key), ""});
        WritePrivateProfileString(section.c_str(), key.c_str(), value.c_str(), path.c_str());
        batch.Write(section.c_str(), key.c_str(), value.c_str());
        if (!section.empty() && !key.empty() && !value.empty()) before = now;
        now = model::Write(now, section, key, value);
        Check(agent.Read("data/p.ini") == now, "a write changes what the model changes",
              agent.Read("data/p.ini") + "\ninstead of\n" + now);
        Check(agent.Read("data/p.ini.old") == before, "the file before is kept",
              agent.Read("data/p.ini.old") + "\ninstead of\n" + before);
    }
    Check(batch.Save(), "a batch can be saved");
    Check(agent.Read("data/batch.ini") == now, "a batch does what its writes do one by one",
          agent.Read("data/batch.ini") + "\ninstead of\n" + now);
    Check(agent.Read("data/batch.ini.old") == before,
          "a batch keeps the file before its last write",
          agent.Read("data/batch.ini.old") + "\ninstead of\n" + before);
    for (const char* name : {"p.ini", "p.ini.old", "batch.ini", "batch.ini.old"}) {
        Check(!agent.Exists("data/" + std::string(name) + ".new"), "no .new stays", name);
    }
    return 0;
}
