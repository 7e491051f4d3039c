#include "Search.h"

namespace tess {

qsizetype nextRowWrapping(qsizetype row, qsizetype n, bool forward)
{
    if (forward)
        return row + 1 == n ? 0 : row + 1;
    return (row == 0 ? n : row) - 1;
}

bool entryMatches(const Entry &entry, const QString &text)
{
    static const QString *const fields[] = {&EntryKey::Path, &EntryKey::URL, &EntryKey::Notes,
                                            &EntryKey::UserID, &EntryKey::UserID2, &EntryKey::Password};
    for (const QString *key : fields) {
        auto it = entry.constFind(*key);
        if (it != entry.constEnd() && it->toString().contains(text, Qt::CaseInsensitive))
            return true;
    }
    return false;
}

qsizetype searchStep(const EntryList &list, qsizetype selectedRow, const QString &text, bool forward)
{
    const qsizetype n = list.size();
    if (text.isEmpty() || n == 0) // an empty list simply finds nothing
        return -1;
    const qsizetype start = selectedRow >= 0 ? selectedRow : n - 1;
    qsizetype row = start;
    for (bool first = true;; first = false) {
        row = nextRowWrapping(row, n, forward);
        if (!first && row == start)
            return -1;
        if (entryMatches(list.at(row).toMap(), text))
            return row;
    }
}

} // namespace tess
