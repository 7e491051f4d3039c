#include "RecentWebsites.h"

namespace tess {

void RecentWebsiteTitles::add(const QString &title)
{
    remove(title);
    if (m_titles.size() >= kMaxTitles)
        m_titles.remove(kMaxTitles - 1, m_titles.size() - (kMaxTitles - 1));
    m_titles.prepend(title);
}

bool RecentWebsiteTitles::remove(const QString &title)
{
    bool found = false;
    for (qsizetype i = m_titles.size() - 1; i >= 0; --i) {
        if (m_titles[i] == title) {
            m_titles.removeAt(i);
            found = true;
        }
    }
    return found;
}

bool RecentWebsiteTitles::rename(const QString &from, const QString &to)
{
    bool found = false;
    for (qsizetype i = m_titles.size() - 1; i >= 0; --i) {
        if (m_titles[i] == from) {
            m_titles[i] = to;
            found = true;
        }
    }
    return found;
}

} // namespace tess
