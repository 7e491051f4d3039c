#pragma once
// The current entry (gWebsiteItem): what the hot keys type and Go To URL opens. It designates
// one record of one document's list, or the editor's working copy while the editor is open.
// A record is held by its name, the list's unique key, and looked up afresh at every use: it
// follows its record through sorts, reloads and merges, reads the record as it is now (never a
// stale copy), and never lands on whatever entry has come to sit at its old row. A record
// that is gone (deleted or renamed elsewhere) designates nothing.

#include "core/entries/Entry.h"

#include <QPointer>

namespace tess {

class MyDocument;

class CurrentEntry {
public:
    void setListEntry(MyDocument *document, const QString &name);
    void setEditedEntry(MyDocument *document, Entry *edited);
    void clear();
    // Clears it when it belongs to the document (closing, re-locking).
    void forget(const MyDocument *document);

    MyDocument *document() const;
    bool isEditedEntry() const { return m_edited; }
    // The record as it is now, or null. Valid until its list or editor changes.
    const Entry *get() const;
    explicit operator bool() const { return get(); }
    const Entry *operator->() const { return get(); }

private:
    QPointer<MyDocument> m_document;
    QString m_name;
    Entry *m_edited = nullptr;
};

} // namespace tess
