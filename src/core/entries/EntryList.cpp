#include "EntryList.h"

#include <QHash>
#include <QSet>

#include <algorithm>
#include <vector>

namespace tess {

namespace {

bool needsNormalizing(const QString &s)
{
    for (QChar c : s)
        if (c.unicode() >= 0xC0)
            return true;
    return false;
}

// Code-point order over UTF-16: surrogates sort above the rest of the BMP.
inline char16_t fixup(char16_t c)
{
    if (c >= 0xE000)
        return char16_t(c - 0x800);
    if (c >= 0xD800)
        return char16_t(c + 0x2000);
    return c;
}

int compareCodePoints(const QString &a, const QString &b)
{
    const qsizetype n = std::min(a.size(), b.size());
    const char16_t *pa = reinterpret_cast<const char16_t *>(a.constData());
    const char16_t *pb = reinterpret_cast<const char16_t *>(b.constData());
    for (qsizetype i = 0; i < n; ++i) {
        if (pa[i] != pb[i]) {
            const char16_t x = pa[i] >= 0xD800 ? fixup(pa[i]) : pa[i];
            const char16_t y = pb[i] >= 0xD800 ? fixup(pb[i]) : pb[i];
            return x < y ? -1 : 1;
        }
    }
    return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

QString sortKey(const QString &name)
{
    return needsNormalizing(name) ? name.normalized(QString::NormalizationForm_D) : name;
}

} // namespace

bool isEntryList(const QVariant &root)
{
    if (root.typeId() != QMetaType::QVariantList)
        return false;
    const QVariantList list = root.toList();
    return std::all_of(list.cbegin(), list.cend(), [](const QVariant &e) { return e.typeId() == QMetaType::QVariantMap; });
}

int compareNames(const QString &a, const QString &b)
{
    return compareCodePoints(sortKey(a), sortKey(b));
}

int passwordsSort(const Entry &a, const Entry &b)
{
    return compareNames(a.value(EntryKey::Path).toString(), b.value(EntryKey::Path).toString());
}

void sortEntries(EntryList &list)
{
    // Normalise each name once, not at every comparison.
    std::vector<std::pair<QString, qsizetype>> keys;
    keys.reserve(std::size_t(list.size()));
    bool sorted = true;
    for (qsizetype i = 0; i < list.size(); ++i) {
        keys.emplace_back(sortKey(entryName(list[i])), i);
        if (sorted && i > 0 && compareCodePoints(keys[std::size_t(i - 1)].first, keys.back().first) > 0)
            sorted = false;
    }
    if (sorted)
        return;
    std::stable_sort(keys.begin(), keys.end(),
                     [](const auto &x, const auto &y) { return compareCodePoints(x.first, y.first) < 0; });
    EntryList result;
    result.reserve(list.size());
    for (const auto &k : keys)
        result.append(std::move(list[k.second]));
    list = std::move(result);
}

qsizetype entryWithName(const EntryList &list, const QString &name)
{
    for (qsizetype i = 0; i < list.size(); ++i)
        if (entryName(list[i]) == name)
            return i;
    return -1;
}

QString uniqueNameForName(const EntryList &list, const QString &name)
{
    if (entryWithName(list, name) < 0)
        return name;
    return uniqueNameForName(entryNameSet(list), name);
}

QSet<QString> entryNameSet(const EntryList &list)
{
    QSet<QString> names;
    names.reserve(list.size());
    for (const QVariant &e : list)
        names.insert(entryName(e));
    return names;
}

QString uniqueNameForName(const QSet<QString> &names, const QString &name)
{
    if (!names.contains(name))
        return name;
    for (qint64 n = 2;; ++n) {
        const QString candidate = name + QString::number(n);
        if (!names.contains(candidate))
            return candidate;
    }
}

QString duplicateNameForName(const EntryList &list, const QString &name)
{
    QSet<QString> names;
    for (const QVariant &e : list)
        names.insert(entryName(e));
    for (qint64 n = 1;; ++n) {
        const QString candidate = n == 1 ? QString(name + QStringLiteral(" copy"))
                                         : QString(name + QStringLiteral(" copy ") + QString::number(n));
        if (!names.contains(candidate))
            return candidate;
    }
}

qsizetype duplicateEntry(EntryList &list, qsizetype row)
{
    Entry copy = list.at(row).toMap();
    copy.insert(EntryKey::Path, duplicateNameForName(list, copy.value(EntryKey::Path).toString()));
    list.append(copy);
    return list.size() - 1;
}

Entry newEntryFromAdd(const QString &defaultUserID)
{
    return Entry{{EntryKey::Path, QStringLiteral("(New)")},
                 {EntryKey::UserID, defaultUserID.isNull() ? QString(QLatin1String("")) : defaultUserID},
                 {EntryKey::Button, QString(QLatin1String(""))},
                 {EntryKey::Notes, QString(QLatin1String(""))}};
}

qsizetype newCategoryNamed(EntryList &list, const QString &name)
{
    list.append(newCategoryEntry(uniqueNameForName(list, name)));
    return list.size() - 1;
}

Entry newCategoryEntry(const QString &uniqueName)
{
    return Entry{{EntryKey::Path, uniqueName},
                 {EntryKey::Button, QString(QLatin1String(""))},
                 {EntryKey::Notes, QString(QLatin1String(""))},
                 {EntryKey::NewUserIDOptions, QVariant::fromValue<qint64>(0)},
                 {EntryKey::PasswordTabCount, QVariant::fromValue<qint64>(0)},
                 {EntryKey::PasswordTabSwitch, true},
                 {EntryKey::UserIDTabCount, QVariant::fromValue<qint64>(0)},
                 {EntryKey::UserIDTabSwitch, false}};
}

QString droppedEntryName(const EntryList &list, const QString &name)
{
    return uniqueNameForName(list, name.section(u'/', -1));
}

bool mergeConflictingEntries(EntryList &list, const EntryList &copy)
{
    // The names of the entries as they were before the merge.
    QSet<QString> current;
    for (const QVariant &e : list)
        current.insert(entryName(e));
    const EntryList before = list;
    bool appended = false;
    for (const QVariant &v : copy) {
        Entry e = v.toMap();
        const QString name = e.value(EntryKey::Path).toString();
        if (current.contains(name)) {
            if (std::any_of(before.cbegin(), before.cend(), [&](const QVariant &c) { return c.toMap() == e; }))
                continue;
            e.insert(EntryKey::Path, uniqueNameForName(list, name + QStringLiteral(" (CONFLICTED)")));
        }
        list.append(e);
        appended = true;
    }
    return appended;
}

namespace {

// An entry's place in the merge: its name and which entry of that name it is, so that a
// list holding one name twice still merges entry by entry.
using MergeKey = QPair<QString, int>;

QHash<MergeKey, qsizetype> keyedByName(const EntryList &list, QList<MergeKey> *keys = nullptr)
{
    QHash<MergeKey, qsizetype> index;
    QHash<QString, int> seen;
    for (qsizetype i = 0; i < list.size(); ++i) {
        const QString name = entryName(list[i]);
        const MergeKey key{name, seen[name]++};
        index.insert(key, i);
        if (keys)
            keys->append(key);
    }
    return index;
}

} // namespace

EntryList mergeThreeWays(const EntryList &base, const EntryList &ours, const EntryList &theirs)
{
    if (ours == base)
        return theirs;
    if (theirs == base || theirs == ours)
        return ours;
    QList<MergeKey> ourKeys, theirKeys;
    const auto inBase = keyedByName(base);
    const auto inOurs = keyedByName(ours, &ourKeys);
    const auto inTheirs = keyedByName(theirs, &theirKeys);
    auto baseEntry = [&](const MergeKey &k) { return inBase.contains(k) ? base[inBase.value(k)] : QVariant(); };

    EntryList merged;
    EntryList conflicting;
    for (qsizetype i = 0; i < ours.size(); ++i) {
        const QVariant &mine = ours[i];
        const QVariant before = baseEntry(ourKeys[i]);
        if (!inTheirs.contains(ourKeys[i])) {
            // Deleted there: it goes unless it was changed here (or is new here).
            if (!before.isValid() || mine != before)
                merged.append(mine);
            continue;
        }
        const QVariant &other = theirs[inTheirs.value(ourKeys[i])];
        if (other == mine || other == before) {
            merged.append(mine);
        } else if (before.isValid() && mine == before) {
            merged.append(other);
        } else {
            merged.append(mine);
            conflicting.append(other);
        }
    }
    for (qsizetype i = 0; i < theirs.size(); ++i) {
        if (inOurs.contains(theirKeys[i]))
            continue;
        // Deleted here stays deleted, unless it was changed there meanwhile.
        const QVariant before = baseEntry(theirKeys[i]);
        if (!before.isValid() || theirs[i] != before)
            merged.append(theirs[i]);
    }
    for (const QVariant &v : std::as_const(conflicting)) {
        Entry e = v.toMap();
        e.insert(EntryKey::Path, uniqueNameForName(merged, entryName(v) + QStringLiteral(" (CONFLICTED)")));
        merged.append(e);
    }
    return merged;
}

} // namespace tess

namespace tess {

QString entryToolTip(const Entry &e, bool hoverUserID, bool hoverPassword, bool hoverURL, bool hoverNotes)
{
    QString text;
    const QString user = e.value(EntryKey::UserID).toString();
    if (hoverUserID && !user.isEmpty()) {
        text = QStringLiteral("User ID: ") + user;
        if (e.contains(EntryKey::UserID2))
            text += u' ' + e.value(EntryKey::UserID2).toString();
    }
    const QString password = e.value(EntryKey::Password).toString();
    if (hoverPassword && !password.isEmpty()) {
        if (e.contains(EntryKey::UserID))
            text += u'\n';
        text += QStringLiteral("Password: ") + password;
    }
    const QString url = e.value(EntryKey::URL).toString();
    if (hoverURL && !url.isEmpty()) {
        if (!text.isEmpty())
            text += u'\n';
        text += QStringLiteral("URL: ") + url;
    }
    const QString notes = e.value(EntryKey::Notes).toString();
    if (hoverNotes && !notes.isEmpty()) {
        if (!text.isEmpty())
            text += u'\n';
        text += QStringLiteral("Notes: ") + notes;
    }
    return text;
}

} // namespace tess
