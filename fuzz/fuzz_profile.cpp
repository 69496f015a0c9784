// Profile files: queries into blocks of exactly the promised size, and writes one by one and as a
// batch.

#include "support.h"

using namespace patrol_fuzz;

namespace {

// The value as a block of `size` bytes and one more holds it.
std::string Ask(const char* section, const std::string& key, size_t size, const std::string& path) {
    const std::vector<char>::size_type bytes = section != nullptr ? size + 1 : size;
    std::vector<char> block(bytes, '!');
    const int count = GetPrivateProfileString(section, key.c_str(), "d", block.data(),
                                              static_cast<int>(size), path.c_str());
    Check(count >= -1 && count <= static_cast<int>(size), "a value is counted in its block");
    return section != nullptr ? block.data() : std::string();
}

// Whether a writer takes some line for several: what it puts in place of the tail of such a line
// stands behind its head.
bool HasLongLine(const std::string& bytes) {
    constexpr size_t kMaxPiece = 511;
    size_t begin = 0;
    for (size_t end; (end = bytes.find('\n', begin)) != std::string::npos; begin = end + 1) {
        if (end - begin >= kMaxPiece) return true;
    }
    return bytes.size() - begin >= kMaxPiece;
}

}  // namespace

FUZZ_TARGET(profile) {
    const Agent& agent = Agent::Fresh();
    const std::string path = agent.Path("data/p.ini"), bytes = input.Text();
    agent.Write("data/p.ini", bytes);
    agent.Write("data/batch.ini", bytes);
    ProfileWriter batch(agent.Path("data/batch.ini").c_str());
    while (!input.empty()) {
        const std::string section = input.Word(), key = input.Word(), value = input.Word();
        const auto room = input.Number<size_t>(1, 2200);
        const std::string whole = Ask(section.c_str(), key, 2200, path);
        Check(Ask(section.c_str(), key, room, path) ==
                  (whole.size() <= room ? whole : whole.substr(0, room - 1)),
              "a value is cut at its block", whole);
        Ask(nullptr, key, room, path);
        GetPrivateProfileInt(section.c_str(), key.c_str(), 5, path.c_str());
        // The next read would take such a line for a header, or for two lines. No caller has one.
        if (key[0] == '[' || key.size() + value.size() > 500) continue;
        WritePrivateProfileString(section.c_str(), key.c_str(), value.c_str(), path.c_str());
        batch.Write(section.c_str(), key.c_str(), value.c_str());
        const std::string now = agent.Read("data/p.ini");
        Check(section.empty() || key.empty() || value.empty() || HasLongLine(now) ||
                  ("\n" + now).find("\n" + key + "=" + value + "\n") != std::string::npos,
              "what is written is there", now);
    }
    Check(batch.Save(), "a batch can be saved");
    for (const std::string name : {"", ".old"}) {
        Check(agent.Read("data/batch.ini" + name) == agent.Read("data/p.ini" + name),
              "a batch does what its writes do one by one", agent.Read("data/batch.ini" + name));
    }
    Check(!agent.LeftUnfinished(), "nothing half-written stays");
}
