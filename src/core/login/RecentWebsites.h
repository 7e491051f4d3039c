#pragma once
// A password file's recent-website titles: entry names, newest first, at most 20, no
// duplicates (exact comparison). The menu that shows them mirrors this list.

#include <QStringList>

namespace tess {

class RecentWebsiteTitles {
public:
    static constexpr int kMaxTitles = 20;

    const QStringList &titles() const { return m_titles; }
    void setTitles(const QStringList &titles) { m_titles = titles; }

    // A visit: the title moves (or goes) to the top; the oldest of 20 makes room.
    void add(const QString &title);
    // Answers whether a title was removed.
    bool remove(const QString &title);
    // Renames in place; answers whether a title matched.
    bool rename(const QString &from, const QString &to);
    void clear() { m_titles.clear(); }

private:
    QStringList m_titles;
};

} // namespace tess
