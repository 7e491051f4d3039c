#pragma once
// The rules of a password file's entry list: its order and the naming rules that keep
// names distinct.

#include "core/entries/Entry.h"

#include <QSet>
#include <QStringList>

namespace tess {

// Whether an archive's root is an entry list: an array whose every element is a dictionary.
// Anything else is a damaged file, never an empty or partial list.
bool isEntryList(const QVariant &root);

// passwordsSort: case-sensitive, code-point order of "Path"; canonically equivalent names
// compare equal. Answers <0, 0 or >0.
int passwordsSort(const Entry &a, const Entry &b);
int compareNames(const QString &a, const QString &b);
// Sorts the whole list in that order (stable).
void sortEntries(EntryList &list);

// entryWithName: index of the first entry whose "Path" equals name exactly, or -1.
qsizetype entryWithName(const EntryList &list, const QString &name);
// uniqueNameForName: name, or name followed directly by 2, 3, ... until free.
QString uniqueNameForName(const EntryList &list, const QString &name);
// The same over a set of the names in use, for callers that add many entries at once.
QString uniqueNameForName(const QSet<QString> &names, const QString &name);
QSet<QString> entryNameSet(const EntryList &list);
// The name duplicateEntry gives a copy: "X copy", "X copy 2", ...
QString duplicateNameForName(const EntryList &list, const QString &name);
// duplicateEntry: appends a copy of entry `row` under its duplicate name; answers its index.
qsizetype duplicateEntry(EntryList &list, qsizetype row);

// The entry the Add button makes.
Entry newEntryFromAdd(const QString &defaultUserID);
// newCategoryNamed:edit: — appends an entry for the importer; answers its index.
qsizetype newCategoryNamed(EntryList &list, const QString &name);
// The same with the name already made unique.
Entry newCategoryEntry(const QString &uniqueName);
// A dropped entry's new name: the last path component, made unique.
QString droppedEntryName(const EntryList &list, const QString &name);

// Merges the entries of a conflicting copy: new names are appended, identical entries
// skipped, a taken name with other content appended as "NAME (CONFLICTED)" made unique.
// Answers whether anything was appended.
bool mergeConflictingEntries(EntryList &list, const EntryList &copy);

// Merges a list changed elsewhere (theirs) into ours, both derived from base, entry by entry
// by name: a change on one side only is taken; an entry deleted on one side and untouched on
// the other goes; an entry deleted on one side and changed on the other stays, changed, so
// that no edit is lost; an entry changed (or added) on both sides differently is kept twice,
// ours under its name and theirs as "NAME (CONFLICTED)" made unique. With ours unchanged
// from base the result is theirs exactly.
EntryList mergeThreeWays(const EntryList &base, const EntryList &ours, const EntryList &theirs);

} // namespace tess

namespace tess {

// The entry table's hover text: user ID(s), password, URL and notes, each only when its
// setting is on and the value is there. A password after no user ID still starts a new line
// when the entry has a "websiteUserID" key, as it always has.
QString entryToolTip(const Entry &entry, bool hoverUserID, bool hoverPassword, bool hoverURL, bool hoverNotes);

} // namespace tess
