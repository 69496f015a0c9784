// patrol-inventory: writes the device configuration from what sysfs and udev know.

#include <getopt.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "device_config.h"
#include "disks.h"
#include "machine.h"
#include "sys/replace_file.h"
#include "text.h"
#include "udev.h"

namespace {

constexpr int kChanged = 0;
constexpr int kUnchanged = 1;
constexpr int kFailed = 2;
constexpr size_t kMaxConfig = 64 << 20;

struct Options {
    std::string sys = "/sys";
    std::string directory;
    bool print = false;
    bool quiet = false;
    bool help = false;
    agent::DiskChoice disks;
};

constexpr char kUsage[] =
    "usage: patrol-inventory [--data DIR] [--sys DIR] [--with KIND,...] [--without NAME,...]\n"
    "                        [--print] [--quiet] [--help]\n";

int Fail(const std::string& sentence) {
    std::fprintf(stderr, "patrol-inventory: %s\n", sentence.c_str());
    return kFailed;
}

// Takes a list such as "sdb, nvme*" apart.
void AppendWords(std::string_view list, std::vector<std::string>* words) {
    for (size_t at = 0; at <= list.size();) {
        const size_t end = std::min(list.find(',', at), list.size());
        const std::string word = agent::Clean(list.substr(at, end - at));
        if (!word.empty()) words->push_back(word);
        at = end + 1;
    }
}

// False, after a word on standard error, when they make no sense.
bool ParseOptions(int argc, char** argv, Options* options) {
    const option table[] = {
        {"data", required_argument, nullptr, 'd'}, {"sys", required_argument, nullptr, 's'},
        {"with", required_argument, nullptr, 'w'}, {"without", required_argument, nullptr, 'x'},
        {"print", no_argument, nullptr, 'p'},      {"quiet", no_argument, nullptr, 'q'},
        {"help", no_argument, nullptr, 'h'},       {nullptr, 0, nullptr, 0}};
    int letter;
    while ((letter = getopt_long(argc, argv, "", table, nullptr)) != -1) {
        if (letter == 'd') options->directory = optarg;
        if (letter == 's') options->sys = optarg;
        if (letter == 'w') AppendWords(optarg, &options->disks.with);
        if (letter == 'x') AppendWords(optarg, &options->disks.without);
        if (letter == 'p') options->print = true;
        if (letter == 'q') options->quiet = true;
        if (letter == 'h') options->help = true;
        if (letter == '?') return false;
    }
    for (const std::string& word : options->disks.with) {
        const std::vector<std::string>& known = agent::DiskKinds();
        if (std::find(known.begin(), known.end(), word) == known.end()) {
            Fail("no kind of device is called \"" + word + "\"");
            return false;
        }
    }
    return optind == argc;
}

// Says which disks cannot be tested as long as udev has not made their links.
void SayMissingLinks(const std::vector<agent::Disk>& disks) {
    for (const agent::Disk& disk : disks) {
        if (access(disk.device.c_str(), F_OK) == 0) continue;
        std::fprintf(stderr,
                     "patrol-inventory: %s, the name under which %s is tested, is missing\n",
                     disk.device.c_str(), disk.name.c_str());
    }
}

int Print(const std::string& text) {
    const bool written = std::fputs(text.c_str(), stdout) >= 0 && std::fflush(stdout) == 0;
    return written ? kChanged : Fail("cannot write to standard output");
}

// Puts `text` into the file unless it is there already.
int Put(const std::string& text, const std::string& path) {
    const auto old = agent::ReadRegularFile(path, kMaxConfig);
    if (old.has_value() && *old == text) return kUnchanged;
    patrol::FileReplacement file(path.c_str());
    if (file.Write(text) && file.Commit() && patrol::SyncDirectory(path)) return kChanged;
    return Fail("cannot write " + path + ": " + std::strerror(errno));
}

int Write(const std::string& text, const std::string& directory) {
    // The new one last: it is what a change is known by.
    const int current = Put(text, directory + "/devconf_cur.xml");
    const int fresh = current == kFailed ? kFailed : Put(text, directory + "/devconf_new.xml");
    if (fresh == kFailed) return kFailed;
    return current == kChanged || fresh == kChanged ? kChanged : kUnchanged;
}

}  // namespace

int main(int argc, char** argv) {
    umask(S_IWGRP | S_IRWXO);
    Options options;
    if (!ParseOptions(argc, argv, &options)) {
        std::fputs(kUsage, stderr);
        return kFailed;
    }
    if (options.help) return Print(kUsage);
    const char* data = std::getenv("KVX_data");
    if (options.directory.empty() && data != nullptr) options.directory = data;
    if (options.directory.empty() && !options.print) {
        return Fail("the environment variable KVX_data is not set, and there is no --data");
    }
    const bool real = options.sys == "/sys";
    std::vector<agent::Disk> disks;
    const agent::UdevProperty nobody = [](const std::string&, const char*) { return ""; };
    if (!agent::FindDisks(options.sys, options.disks, real ? agent::AskUdev() : nobody, &disks)) {
        return Fail("cannot read " + options.sys + "/block: " + std::strerror(errno));
    }
    if (real && !options.quiet) SayMissingLinks(disks);
    const std::string text = agent::DeviceConfig(agent::LookAtMachine(options.sys), disks);
    return options.print ? Print(text) : Write(text, options.directory);
}
