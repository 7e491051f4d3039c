#pragma once
// The entry editor shown in the document's callout: the entry's fields, the name warning and
// the Save and Cancel buttons. It works on a copy of the entry; the document writes the copy
// back when the callout ends with Save.

#include "core/entries/Entry.h"

#include <QStringList>
#include <QWidget>

class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;

namespace tess {

class EntryEditor : public QWidget {
    Q_OBJECT

public:
    explicit EntryEditor(QWidget *parent = nullptr);

    // Fills the fields from the entry; otherNames are the names no other entry may take.
    void load(const Entry &entry, const QStringList &otherNames);
    // Re-evaluates the name warning and the save button.
    void setEnabledForCalloutSaveChanges(bool writable);

    const Entry &originalEntry() const { return m_originalEntry; }
    Entry &editedEntry() { return m_editedEntry; }

    QLineEdit *nameText, *urlText, *userID1Text, *userID2Text, *passwordText;
    QPlainTextEdit *notesText;
    QLabel *nameExistsWarning;
    QPushButton *okButton, *cancelButton;

Q_SIGNALS:
    // An edit changed the copy; the owner re-evaluates the save button.
    void edited();
    void saveChosen();
    void cancelChosen();

private:
    void fieldChanged(QWidget *field);

    Entry m_originalEntry;
    Entry m_editedEntry;
    QStringList m_entryNames;
    bool m_filling = false;
};

} // namespace tess
