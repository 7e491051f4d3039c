#pragma once
// One step of find: from the current row to the next entry, wrapping, that contains the text.

#include "core/entries/Entry.h"

namespace tess {

// nextRowWrapping: the row after `row` in the direction, wrapping round n rows.
qsizetype nextRowWrapping(qsizetype row, qsizetype n, bool forward);

// Whether any searched field of the entry contains the text, ignoring case. The fields, in
// order: "Path", "websiteURL", "Notes", "websiteUserID", "websiteUserID2", "websitePassword".
bool entryMatches(const Entry &entry, const QString &text);

// One search step from the single selected row (-1: none or several). Answers the matching
// row, or -1 for "not found". An empty text answers -1 without looking.
qsizetype searchStep(const EntryList &list, qsizetype selectedRow, const QString &text, bool forward);

} // namespace tess
