#include "EntryEditor.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace tess {

EntryEditor::EntryEditor(QWidget *parent) : QWidget(parent)
{
    nameText = new QLineEdit;
    urlText = new QLineEdit;
    userID1Text = new QLineEdit;
    userID2Text = new QLineEdit;
    passwordText = new QLineEdit;
    notesText = new QPlainTextEdit;
    notesText->setTabChangesFocus(true);
    notesText->setMinimumHeight(90);
    const QList<QPair<QWidget *, const char *>> named = {{nameText, "nameText"}, {urlText, "urlText"}, {userID1Text, "userID1Text"},
                                                         {userID2Text, "userID2Text"}, {passwordText, "passwordText"},
                                                         {notesText, "notesText"}};
    for (const auto &[w, n] : named)
        w->setObjectName(QLatin1String(n));
    nameExistsWarning = new QLabel(QStringLiteral("An entry needs a name that no other entry has."));
    nameExistsWarning->setStyleSheet(QStringLiteral("color: #b00020"));
    nameExistsWarning->hide();
    okButton = new QPushButton(QStringLiteral("Save"));
    okButton->setDefault(true);
    okButton->setObjectName(QStringLiteral("okButton"));
    cancelButton = new QPushButton(QStringLiteral("Cancel"));
    cancelButton->setObjectName(QStringLiteral("cancelButton"));

    auto *form = new QFormLayout;
    form->addRow(QStringLiteral("&Name:"), nameText);
    form->addRow(QString(), nameExistsWarning);
    form->addRow(QStringLiteral("&Website:"), urlText);
    form->addRow(QStringLiteral("&User ID:"), userID1Text);
    form->addRow(QStringLiteral("User ID &2:"), userID2Text);
    form->addRow(QStringLiteral("&Password:"), passwordText);
    form->addRow(QStringLiteral("N&otes:"), notesText);
    auto *buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(cancelButton);
    buttons->addWidget(okButton);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addLayout(form);
    // Room for the login options, which join the editor with the login sequences.
    layout->addLayout(buttons);

    for (QLineEdit *e : {nameText, urlText, userID1Text, userID2Text, passwordText})
        connect(e, &QLineEdit::textChanged, this, [this, e] { fieldChanged(e); });
    connect(notesText, &QPlainTextEdit::textChanged, this, [this] { fieldChanged(notesText); });
    connect(okButton, &QPushButton::clicked, this, &EntryEditor::saveChosen);
    connect(cancelButton, &QPushButton::clicked, this, &EntryEditor::cancelChosen);
}

void EntryEditor::load(const Entry &entry, const QStringList &otherNames)
{
    m_originalEntry = entry;
    m_editedEntry = m_originalEntry;
    m_entryNames = otherNames;
    nameExistsWarning->hide();
    m_filling = true;
    nameText->setText(m_editedEntry.value(EntryKey::Path).toString());
    urlText->setText(m_editedEntry.value(EntryKey::URL).toString());
    userID1Text->setText(m_editedEntry.value(EntryKey::UserID).toString());
    userID2Text->setText(m_editedEntry.value(EntryKey::UserID2).toString());
    passwordText->setText(m_editedEntry.value(EntryKey::Password).toString());
    notesText->setPlainText(m_editedEntry.value(EntryKey::Notes).toString());
    m_filling = false;
}

void EntryEditor::fieldChanged(QWidget *field)
{
    if (m_filling)
        return;
    if (field == nameText)
        m_editedEntry.insert(EntryKey::Path, nameText->text());
    else if (field == notesText)
        m_editedEntry.insert(EntryKey::Notes, notesText->toPlainText());
    else if (field == urlText)
        m_editedEntry.insert(EntryKey::URL, urlText->text());
    else if (field == userID1Text)
        m_editedEntry.insert(EntryKey::UserID, userID1Text->text());
    else if (field == userID2Text) {
        if (userID2Text->text().isEmpty())
            m_editedEntry.remove(EntryKey::UserID2);
        else
            m_editedEntry.insert(EntryKey::UserID2, userID2Text->text());
    } else if (field == passwordText)
        m_editedEntry.insert(EntryKey::Password, passwordText->text());
    Q_EMIT edited();
}

void EntryEditor::setEnabledForCalloutSaveChanges(bool writable)
{
    const QString name = nameText->text();
    const bool valid = !name.isEmpty() && !m_entryNames.contains(name);
    nameExistsWarning->setVisible(!valid);
    okButton->setEnabled(writable && valid && m_editedEntry != m_originalEntry);
}

} // namespace tess
