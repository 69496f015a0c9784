#include "sys/profile.h"

namespace patrol {

int GetPrivateProfileString(const char* section, const char* key, const char* default_value,
                            char* result, int size, const char* path) {
    return ProfileReader(path).String(section, key, default_value, result, size);
}

int GetPrivateProfileInt(const char* section, const char* key, int default_value,
                         const char* path) {
    return ProfileReader(path).Int(section, key, default_value);
}

int GetPrivateProfileSectionNames(char* result, int size, const char* path) {
    return ProfileReader(path).SectionNames(result, size);
}

void WritePrivateProfileString(const char* section, const char* key, const char* value,
                               const char* path) {
    ProfileWriter writer(path);
    writer.Write(section, key, value);
    writer.Save();
}

}  // namespace patrol
