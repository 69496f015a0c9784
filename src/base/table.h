// Tables whose size comes from a file.
#pragma once

#include <cstddef>
#include <new>
#include <utility>

#include "base/number.h"

namespace patrol {

// Allocates `count` cleared entries, at most kMaxCount. Returns null when they cannot be had; a
// count below 0, or one whose entries would take more than 1 GiB, is damaged and counts as that.
// The caller deletes the table, with FreeTable.
template <class Entry>
Entry* AllocateTable(int count) {
    constexpr size_t kMaxBytes = size_t{1} << 30;
    if (count < 0 || static_cast<size_t>(count) > kMaxBytes / sizeof(Entry)) return nullptr;
    // A failure is the caller's to report, not that of the program's handler.
    const std::new_handler handler = std::set_new_handler(nullptr);
    Entry* table = new (std::nothrow) Entry[static_cast<size_t>(BoundedCount(count))];
    std::set_new_handler(handler);
    return table;
}

// Deletes a table, if there is one, and sets its count to 0.
template <class Entry>
void FreeTable(Entry** table, int* count) {
    delete[] std::exchange(*table, nullptr);
    *count = 0;
}

// The bytes that `count` entries were to take, as the message about a failed allocation has them.
template <class Entry>
int TableBytes(int count) {
    return ClampToInt(int64_t{count} * static_cast<int64_t>(sizeof(Entry)));
}

}  // namespace patrol
