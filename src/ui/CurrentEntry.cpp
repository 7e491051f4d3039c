#include "CurrentEntry.h"

#include "core/entries/EntryList.h"
#include "ui/MyDocument.h"

namespace tess {

void CurrentEntry::setListEntry(MyDocument *document, const QString &name)
{
    m_document = document;
    m_name = name;
    m_edited = nullptr;
}

void CurrentEntry::setEditedEntry(MyDocument *document, Entry *edited)
{
    m_document = document;
    m_name.clear();
    m_edited = edited;
}

void CurrentEntry::clear()
{
    m_document = nullptr;
    m_name.clear();
    m_edited = nullptr;
}

void CurrentEntry::forget(const MyDocument *document)
{
    if (m_document == document)
        clear();
}

MyDocument *CurrentEntry::document() const
{
    return m_document.data();
}

const Entry *CurrentEntry::get() const
{
    if (!m_document)
        return nullptr;
    if (m_edited)
        return m_edited;
    const EntryList &list = m_document->file().passwordArray();
    const qsizetype row = entryWithName(list, m_name);
    if (row < 0)
        return nullptr;
    const QVariant &record = list[row];
    if (record.metaType() != QMetaType::fromType<Entry>())
        return nullptr;
    return static_cast<const Entry *>(record.constData());
}

} // namespace tess
