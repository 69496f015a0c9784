// Profile (INI) files: sections of key=value lines.
//
// Names are case-sensitive; there is no escaping, no inline comment, no continuation. A section is
// opened by the first header line that contains "[name]" anywhere, and ends at the next header
// line. Of several lines for one key in it the last one counts. Readers drop every CR and the white
// space at both ends of a line and pass over lines that begin with ";"; "key = value" with a blank
// before the "=" is not an entry. Reading and writing rules differ a little, and files depend on
// both.
//
// No operation reports an error: what cannot be read yields the default, what cannot be written
// leaves the file as it was. Only regular files are profiles.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/file.h"
#include "base/text.h"

namespace patrol {

// The value of `key`, or `default_value` where there is none (null: nothing), in `result`, which
// must hold size + 1 bytes: a value of exactly `size` characters is copied whole; a longer one is
// cut to size - 1 characters and counted as one less than that. Returns the length so counted. A
// key with an empty value gives an empty result and 0. A null section asks for the section names.
int GetPrivateProfileString(const char* section, const char* key, const char* default_value,
                            char* result, int size, const char* path);

// The decimal number at the start of the value, clamped to an int; `default_value` where there is
// no key or no number.
int GetPrivateProfileInt(const char* section, const char* key, int default_value, const char* path);

// The section names, each ended by NUL, in `size` bytes; a name that does not fit ends the list.
// Returns the offset just past the last name.
int GetPrivateProfileSectionNames(char* result, int size, const char* path);

// Replaces the value of `key`, or adds the line at the end of its section; where the section does
// not exist the bare line goes to the end of the file, into whatever section stands there: callers
// create sections through the builders alone. A missing file is not created. What the file held
// before stays as "<path>.old". Null or empty names or values write nothing.
void WritePrivateProfileString(const char* section, const char* key, const char* value,
                               const char* path);

// WritePrivateProfileString for a caller that has many such writes in a row, each with other work
// between: they are put in place together, by a ProfileWriter, before this process next waits for
// anything, starts a child, or reads that profile or writes to it in another way (Refresh apart).
void WriteProfileSoon(const char* section, const char* key, const char* value, const char* path);

// Puts those writes in place now; with a path, only if they are to that profile.
void PutProfileWrites(const char* path = nullptr);

// A profile read once and asked many times, by the rules above.
class ProfileReader {
 public:
    explicit ProfileReader(const char* path);

    // Reads the file again if another one stands in its place, or it was changed. Writes by
    // WriteProfileSoon that are still to come are not looked for.
    void Refresh();

    // Whether the file could be read; else every answer is the default.
    bool loaded() const { return loaded_; }

    int String(const char* section, const char* key, const char* default_value, char* result,
               int size) const;
    int Int(const char* section, const char* key, int default_value) const;
    int SectionNames(char* result, int size) const;

    // Into a field of N bytes, read with that size: N - 1 characters are kept.
    template <size_t N>
    void Field(const char* section, const char* key, const char* default_value,
               Text<N>* result) const {
        Text<N + 1> value;
        String(section, key, default_value, &value);
        result->Assign(value.view());
    }

    // String into a text: a value of up to N - 1 characters is copied whole.
    template <size_t N>
    int String(const char* section, const char* key, const char* default_value,
               Text<N>* result) const {
        return String(section, key, default_value, result->data(), static_cast<int>(N - 1));
    }

 private:
    // The cleaned lines that may be headers or entries, cut at one line size.
    struct Lines {
        std::vector<std::string> lines;
        // "[name]" to the first header line that contains it.
        std::unordered_map<std::string, size_t> first_header;
    };
    const Lines& CutAt(size_t line_size, std::optional<Lines>* cached) const;
    std::optional<size_t> FirstLine(const Lines& lines, const char* section,
                                    bool bracket_needed) const;

    void Load();

    std::string path_;
    struct stat status_ = {};
    std::string bytes_;
    bool loaded_ = false;
    mutable std::optional<Lines> string_lines_;
    mutable std::optional<Lines> int_lines_;
};

// Many writes to one profile, put in place together. "<path>.old" then holds what the file would
// have held before the last of them.
class ProfileWriter {
 public:
    // Reads the file; where that fails all writes go nowhere.
    explicit ProfileWriter(const char* path);

    void Write(const char* section, const char* key, const char* value);

    // Puts the writes, if there are any, in place. False when that, or reading the file, failed;
    // the file is then as it was. A "<path>.old" that cannot be had does not keep the writes out.
    bool Save();

 private:
    struct Entry {
        std::string section;
        std::string key;
        std::string line;
    };
    void Apply(const Entry& entry);
    using Lines = std::list<std::string>;
    void Insert(Lines::iterator at, const std::string& line);
    Lines::iterator FindHeader(const std::string& section);
    std::string Join() const;

    std::string path_;
    bool loaded_ = false;
    int writes_ = 0;
    std::optional<Entry> pending_;
    Lines lines_;  // with their line feeds, cut at 511 characters
    std::unordered_map<std::string, Lines::iterator> first_header_;
};

// Makes "<path>.old" hold what the profile holds now, for a rebuild to come. False, with
// "<path>.old" as it was, when that fails.
bool KeepProfileAsOld(const char* path);

// The stream routines underneath. rf_fileopen tries four times; null when none succeeds.
// rf_filegets takes the next line from `rest`, at most size - 1 characters, and cleans it; false at
// the end. rf_fileclose returns 0, or 1 when the stream failed to close; it is gone either way, so
// there is no second attempt.
Stream rf_fileopen(const char* path, const char* mode);
bool rf_filegets(std::string* line, size_t size, std::string_view* rest);
int rf_fileclose(Stream stream);

// The whole of a regular file. False when it is none, is larger than 16 MiB, cannot be opened or a
// read fails for good; `bytes` then holds what was read.
// `status`, where given, is the file's before it was read, cleared where there is none.
bool LoadProfile(const char* path, std::string* bytes, struct stat* status = nullptr);

// The next line of `rest` with its line feed, at most `limit` characters of it; empty at the end.
std::string_view TakePiece(std::string_view* rest, size_t limit);

// Enters every "[name]" that `header` contains into `index`, unless an earlier line has it.
template <class Line>
void IndexHeader(const std::string& header, Line line,
                 std::unordered_map<std::string, Line>* index) {
    for (size_t open = header.find('['); open != std::string::npos;
         open = header.find('[', open + 1)) {
        const size_t next = header.find_first_of("[]", open + 1);
        if (next == std::string::npos) return;
        if (header[next] == ']') index->emplace(header.substr(open, next - open + 1), line);
    }
}

}  // namespace patrol
