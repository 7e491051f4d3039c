#include "MyDocument.h"

#include "core/app/QWPrefs.h"
#include "core/archive/KeyedArchive.h"
#include "core/entries/EntryList.h"
#include "core/entries/Search.h"
#include "ui/ApplicationLogin.h"
#include "ui/CXAttachedWindow.h"
#include "ui/Controller.h"
#include "ui/ExportPanel.h"
#include "ui/EntryEditor.h"
#include "ui/GeneratorCallout.h"
#include "ui/Globals.h"
#include "ui/Help.h"
#include "ui/ImportDialog.h"
#include "ui/Panels.h"
#include "ui/Printing.h"
#include "ui/QWCellTableViewArray.h"
#include "ui/WebsitePasswordManager.h"

#include <QApplication>
#include <QCloseEvent>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QIconEngine>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QMimeData>
#include <QPainter>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QShortcut>
#include <QStyle>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>

namespace tess {

namespace {

const QString kPWItems = QStringLiteral("PW Items");
const QString kDBPath = QStringLiteral("DB Path");

// The go-to-URL globe, drawn for the size and pixel ratio it is shown at, so that it stays
// sharp on HiDPI screens.
class GlobeIconEngine : public QIconEngine {
public:
    void paint(QPainter *p, const QRect &rect, QIcon::Mode, QIcon::State) override
    {
        p->save();
        p->setRenderHint(QPainter::Antialiasing);
        p->translate(rect.topLeft());
        p->scale(rect.width() / 16.0, rect.height() / 16.0);
        p->setPen(QPen(QColor(0x1f, 0x6f, 0xd0), 1.5));
        p->setBrush(Qt::NoBrush);
        p->drawEllipse(QRectF(1.5, 1.5, 13, 13));
        p->drawLine(QPointF(1.5, 8), QPointF(14.5, 8));
        p->drawEllipse(QRectF(5, 1.5, 6, 13));
        p->restore();
    }
    QIconEngine *clone() const override { return new GlobeIconEngine; }
};

QIcon websiteIcon(bool enabled)
{
    if (!enabled)
        return QIcon(); // "blank"
    static const QIcon globe(new GlobeIconEngine);
    return globe;
}

} // namespace

MyDocument::MyDocument(const QString &packagePath, Keychain *keychain, QWidget *parent)
    : QMainWindow(parent), m_file(packagePath, keychain, this)
{
    setAttribute(Qt::WA_DeleteOnClose);
    buildWindow();
    buildEditor();
    buildMenus();
    m_wpm = new WebsitePasswordManager(this, &m_file);
    setWindowTitle(QFileInfo(packagePath).completeBaseName() + QStringLiteral(" — Tessaline"));
    setWindowFilePath(packagePath);
    updateTimer.setInterval(10000);
    connect(&updateTimer, &QTimer::timeout, this, [this] {
        const auto r = m_file.checkForUpdates();
        if (r.entriesReloaded || r.merged)
            reloadTable();
    });
    passwordTimer.setSingleShot(true);
    connect(&passwordTimer, &QTimer::timeout, this, &MyDocument::setPromptForPassword);
}

MyDocument::~MyDocument()
{
    if (gController)
        gController->login()->cancelFor(this);
    // The current entry can be this window's while no window is main (after a re-lock).
    gWebsiteItem.forget(this);
    if (gWebsiteDocument == this) {
        gWebsiteDocument = nullptr;
        gWPM = nullptr;
    }
}

void MyDocument::buildWindow()
{
    auto *central = new QWidget;
    addButton = new QPushButton(QStringLiteral("Add"));
    deleteButton = new QPushButton(QStringLiteral("Delete"));
    duplicateButton = new QPushButton(QStringLiteral("Duplicate"));
    addButton->setToolTip(QStringLiteral("Add an entry"));
    readOnlyIcon = new QLabel;
    readOnlyIcon->setPixmap(style()->standardIcon(QStyle::SP_MessageBoxWarning).pixmap(20));
    readOnlyIcon->setToolTip(QStringLiteral("This password file is read-only"));
    readOnlyIcon->hide();
    searchField = new QLineEdit;
    searchField->setPlaceholderText(QStringLiteral("Search"));
    searchField->setClearButtonEnabled(true);
    searchField->setObjectName(QStringLiteral("searchField"));
    searchBackwardButton = new QToolButton;
    searchBackwardButton->setArrowType(Qt::LeftArrow);
    searchBackwardButton->setToolTip(QStringLiteral("Find Previous"));
    searchForwardButton = new QToolButton;
    searchForwardButton->setArrowType(Qt::RightArrow);
    searchForwardButton->setToolTip(QStringLiteral("Find Next"));
    // The arrows and the field show no words: say what they are to screen readers.
    searchField->setAccessibleName(QStringLiteral("Search"));
    searchBackwardButton->setAccessibleName(QStringLiteral("Find Previous"));
    searchForwardButton->setAccessibleName(QStringLiteral("Find Next"));

    auto *top = new QHBoxLayout;
    top->addWidget(addButton);
    top->addWidget(deleteButton);
    top->addWidget(duplicateButton);
    top->addWidget(readOnlyIcon);
    top->addStretch();
    top->addWidget(searchField);
    top->addWidget(searchBackwardButton);
    top->addWidget(searchForwardButton);

    passwordTable = new QWCellTableViewArray;
    passwordTable->setEditTriggers(QAbstractItemView::NoEditTriggers);
    passwordTable->setColumns({{QStringLiteral("NOCHANGE"), QString()}, {QStringLiteral("NOCHANGE"), QStringLiteral("Name")}});
    passwordTable->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Fixed);
    passwordTable->setColumnWidth(0, 28);
    passwordTable->setColumnAccessibleName(0, QStringLiteral("Go To URL"));
    passwordTable->setAccessibleName(QStringLiteral("Entries"));
    passwordTable->setAddButton(addButton);
    passwordTable->setDeleteButton(deleteButton);

    errorLine = new QLabel;
    errorLine->setStyleSheet(QStringLiteral("color: #b00020"));
    errorLine->hide();
    passwordTable->setErrorMessageField(errorLine);
    notFoundMessage = new QLabel(QStringLiteral("Not found."));
    notFoundMessage->hide();
    saveMsg = new QLabel(QStringLiteral("Saving…"));
    saveMsg->hide();
    auto *bottom = new QHBoxLayout;
    bottom->addWidget(errorLine);
    bottom->addWidget(notFoundMessage);
    bottom->addStretch();
    bottom->addWidget(saveMsg);

    lockedMessage = new QLabel(QStringLiteral("Locked. The password is asked for when this window comes to the front."));
    lockedMessage->setAlignment(Qt::AlignCenter);
    lockedMessage->setWordWrap(true);
    lockedMessage->hide();

    auto *layout = new QVBoxLayout(central);
    layout->addLayout(top);
    layout->addWidget(passwordTable);
    layout->addWidget(lockedMessage, 1);
    layout->addLayout(bottom);
    setCentralWidget(central);
    resize(460, 520);

    connect(addButton, &QPushButton::clicked, this, &MyDocument::addEntry);
    connect(deleteButton, &QPushButton::clicked, this, &MyDocument::confirmDelete);
    connect(duplicateButton, &QPushButton::clicked, this, &MyDocument::duplicateEntry);
    connect(searchBackwardButton, &QToolButton::clicked, this, [this] { search(false); });
    connect(searchForwardButton, &QToolButton::clicked, this, [this] { search(true); });
    connect(searchField, &QLineEdit::returnPressed, this, [this] { search(true); });
    // Escape gives up the search: the field is cleared and the keyboard is back in the list.
    auto *giveUpSearch = new QShortcut(QKeySequence(Qt::Key_Escape), searchField, nullptr, nullptr, Qt::WidgetShortcut);
    connect(giveUpSearch, &QShortcut::activated, this, [this] {
        searchField->clear();
        notFoundMessage->hide();
        passwordTable->setFocus(Qt::ShortcutFocusReason);
    });
    // The search controls are live exactly while there is text to look for.
    auto searchTextChanged = [this] {
        const bool any = !searchField->text().isEmpty();
        searchBackwardButton->setEnabled(any);
        searchForwardButton->setEnabled(any);
        validateMenuItems();
    };
    connect(searchField, &QLineEdit::textChanged, this, searchTextChanged);
    searchTextChanged();
    connect(passwordTable, &QAbstractItemView::clicked, this, [this](const QModelIndex &i) {
        if (i.column() == 0 && passwordTable->cellEnabled(0, i.row()))
            goToURL(i.row());
    });

    framisPanel = new PasswordPanel(this);
    promptPanel = new PromptPanel(this);
    framisChangePanel = new ChangePasswordPanel(this);
}

void MyDocument::buildEditor()
{
    pwDataCalloutView = new EntryEditor(this);
    pwDataCalloutView->hide();
    connect(pwDataCalloutView, &EntryEditor::edited, this, &MyDocument::setEnabledForCalloutSaveChanges);
    connect(pwDataCalloutView->generateButton, &QPushButton::clicked, this,
            [this] { GeneratorCallout::generatePassword(pwDataCalloutView); });
    connect(pwDataCalloutView, &EntryEditor::passwordEdited, this, [] {
        if (gController)
            gController->login()->hideFloatingPassword();
    });
    connect(pwDataCalloutView, &EntryEditor::saveChosen, this, [this] {
        if (callout)
            callout->done(1);
    });
    connect(pwDataCalloutView, &EntryEditor::cancelChosen, this, [this] {
        if (callout)
            callout->done(0);
    });
}

void MyDocument::buildMenus()
{
    fileMenu = menuBar()->addMenu(QStringLiteral("&File"));
    QAction *newFile = fileMenu->addAction(QStringLiteral("&New Password File…"));
    newFile->setShortcut(QKeySequence::New);
    connect(newFile, &QAction::triggered, this, [] {
        if (gController)
            gController->newDocument();
    });
    QAction *open = fileMenu->addAction(QStringLiteral("&Open…"));
    open->setShortcut(QKeySequence::Open);
    connect(open, &QAction::triggered, this, [] {
        if (gController)
            gController->openDocumentWithDialog();
    });
    if (gRecentWebsitesMenu)
        fileMenu->addMenu(gRecentWebsitesMenu);
    fileMenu->addSeparator();
    connect(fileMenu->addAction(QStringLiteral("&Import…")), &QAction::triggered, this, &MyDocument::importPasswordDataBegin);
    connect(fileMenu->addAction(QStringLiteral("E&xport…")), &QAction::triggered, this,
            [this] { exportPasswordData(this, m_file.passwordArray(), passwordTable->selectedRows()); });
    fileMenu->addSeparator();
    connect(fileMenu->addAction(QStringLiteral("Page Set&up…")), &QAction::triggered, this, [this] { runPageLayout(this); });
    QAction *print = fileMenu->addAction(QStringLiteral("&Print…"));
    print->setShortcut(QKeySequence::Print);
    connect(print, &QAction::triggered, this,
            [this] { printDocument(this, m_file.passwordArray(), passwordTable->selectedRows(), filePath()); });
    fileMenu->addSeparator();
    QAction *change = fileMenu->addAction(QStringLiteral("Change Password…"));
    connect(change, &QAction::triggered, this, &MyDocument::changePassword);
    keychainMenuItem = fileMenu->addAction(QStringLiteral("Save File Password In Keychain"));
    keychainMenuItem->setCheckable(true);
    connect(keychainMenuItem, &QAction::triggered, this, &MyDocument::toggleSavePWInKeychain);
    fileMenu->addSeparator();
    QAction *close = fileMenu->addAction(QStringLiteral("&Close"));
    close->setShortcut(QKeySequence::Close);
    connect(close, &QAction::triggered, this, &QWidget::close);
    QAction *quit = fileMenu->addAction(QStringLiteral("&Quit"));
    quit->setShortcut(QKeySequence::Quit);
    quit->setMenuRole(QAction::QuitRole);
    connect(quit, &QAction::triggered, qApp, [] {
        if (gController)
            gController->quit();
        else
            QApplication::quit();
    });

    editMenu = menuBar()->addMenu(QStringLiteral("&Edit"));
    QAction *view = editMenu->addAction(QStringLiteral("View/Edit Entry…"));
    view->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_E));
    connect(view, &QAction::triggered, this, &MyDocument::editEntry);
    QAction *add = editMenu->addAction(QStringLiteral("Add Entry"));
    add->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_N));
    connect(add, &QAction::triggered, this, &MyDocument::addEntry);
    QAction *dup = editMenu->addAction(QStringLiteral("Duplicate Entry"));
    dup->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_D));
    connect(dup, &QAction::triggered, this, &MyDocument::duplicateEntry);
    QAction *del = editMenu->addAction(QStringLiteral("Delete Entry"));
    del->setShortcut(QKeySequence::Delete);
    connect(del, &QAction::triggered, this, &MyDocument::confirmDelete);
    editMenu->addSeparator();
    QAction *go = editMenu->addAction(QStringLiteral("Go To URL"));
    go->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_U));
    connect(go, &QAction::triggered, this, [this] {
        const QList<int> rows = passwordTable->selectedRows();
        if (rows.size() == 1)
            goToURL(rows.first());
    });
    editMenu->addSeparator();
    QAction *findItem = editMenu->addAction(QStringLiteral("Find ..."));
    findItem->setShortcut(QKeySequence::Find);
    connect(findItem, &QAction::triggered, this, &MyDocument::find);
    QAction *next = editMenu->addAction(QStringLiteral("Find Next"));
    next->setShortcut(QKeySequence::FindNext);
    connect(next, &QAction::triggered, this, [this] { search(true); });
    QAction *previous = editMenu->addAction(QStringLiteral("Find Previous"));
    previous->setShortcut(QKeySequence::FindPrevious);
    connect(previous, &QAction::triggered, this, [this] { search(false); });
    editMenu->addSeparator();
    QAction *preferences = editMenu->addAction(QStringLiteral("Preferences…"));
    preferences->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
    preferences->setMenuRole(QAction::PreferencesRole);
    connect(preferences, &QAction::triggered, this, [] {
        if (gController)
            gController->preferences();
    });

    QMenu *help = menuBar()->addMenu(QStringLiteral("&Help"));
    addHelpMenuItems(help);
    connect(help->addAction(QStringLiteral("About Tessaline")), &QAction::triggered, this, [this] {
        prompt(QStringLiteral("Tessaline %1\nA password manager that logs you in.").arg(QApplication::applicationVersion()),
               QStringLiteral("OK"));
    });
    for (QMenu *m : {fileMenu, editMenu})
        connect(m, &QMenu::aboutToShow, this, &MyDocument::validateMenuItems);
}

bool MyDocument::validateMenuItem(QAction *item) const
{
    const QString title = QString(item->text()).remove(u'&'); // without its mnemonic
    if (title == u"Save File Password In Keychain") {
        item->setChecked(m_file.passwordInKeychain());
        return true;
    }
    if (title == u"Go To URL")
        return gWebsiteItem && !gWebsiteItem->value(EntryKey::URL).toString().isEmpty();
    const int selected = int(passwordTable->selectedRows().size());
    if (title.startsWith(u"View/Edit"))
        return selected == 1;
    if (title.startsWith(u"Export"))
        return selected >= 1;
    if (title == u"Find ...")
        return true;
    if (title.startsWith(u"Find "))
        return !searchField->text().isEmpty();
    if (title.startsWith(u"Print"))
        return !m_file.passwordArray().isEmpty();
    if (title.startsWith(u"Import"))
        return m_file.PWFileWriteable();
    return true;
}

void MyDocument::validateMenuItems()
{
    if (!fileMenu || !editMenu)
        return;
    for (QMenu *m : {fileMenu, editMenu})
        for (QAction *a : m->actions())
            if (!a->isSeparator() && !a->menu())
                a->setEnabled(validateMenuItem(a));
}

void MyDocument::openDatabase()
{
    switch (m_file.open()) {
    case PasswordFile::OpenResult::NotAPasswordFile:
    case PasswordFile::OpenResult::NoScratchDirectory:
    case PasswordFile::OpenResult::Cancelled:
    case PasswordFile::OpenResult::Damaged:
        m_closing = true;
        close();
        return;
    case PasswordFile::OpenResult::Opened:
        break;
    }
    m_opened = true;
    const bool writable = m_file.PWFileWriteable();
    readOnlyIcon->setVisible(!writable);
    if (!writable)
        pwDataCalloutView->disableUI();
    addButton->setVisible(writable);
    deleteButton->setVisible(writable);
    duplicateButton->setVisible(writable);

    QWCellTableViewArray::Delegate d;
    d.addEntry = [this](QWCellTableViewArray *) {
        Entry e = newEntryFromAdd(gPrefs ? gPrefs->objectForKey(Pref::DefaultUserID).toString() : QString());
        m_file.passwordArray().append(e);
        passwordTable->reloadData();
        const int row = int(m_file.passwordArray().size() - 1);
        passwordTable->selectRowAlone(row);
        runPWDataCalloutForEntry(row, true);
        return true;
    };
    d.editEntryAtIndex = [this](QWCellTableViewArray *, int row) {
        row = readFileIfChangedKeeping(row);
        if (row >= 0)
            runPWDataCalloutForEntry(row, false);
    };
    d.selectionDidChange = [this](QWCellTableViewArray *) { selectionDidChange(); };
    d.changed = [this](QWCellTableViewArray *) { QWCellTableViewArrayChanged(); };
    d.willDisplayCell = [this](QWCellTableViewArray *, QWCellTableViewArray::CellDisplay &cell, int column, int row) {
        if (column != 0)
            return;
        const bool hasURL = !m_file.passwordArray().value(row).toMap().value(EntryKey::URL).toString().isEmpty();
        cell.icon = websiteIcon(hasURL);
        cell.enabled = hasURL;
    };
    d.toolTipForCell = [this](QWCellTableViewArray *, int, int row) {
        if (!gPrefs)
            return QString();
        return entryToolTip(m_file.passwordArray().value(row).toMap(), gPrefs->boolForKey(Pref::HoverUserID),
                            gPrefs->boolForKey(Pref::HoverPassword), gPrefs->boolForKey(Pref::HoverURL),
                            gPrefs->boolForKey(Pref::HoverNotes));
    };
    d.writeRowsToPasteboard = [this](QWCellTableViewArray *, const QList<int> &rows, QMimeData *mime) {
        QVariantList entries;
        for (int r : rows)
            entries.append(m_file.passwordArray().value(r));
        mime->setData(kPWItems, archive::encodeKeyedArchive(entries));
        mime->setData(kDBPath, filePath().toUtf8());
        return true;
    };
    d.validateDrop = [this](QWCellTableViewArray *, const QMimeData *mime, int) {
        if (mime->hasFormat(kPWItems) && QString::fromUtf8(mime->data(kDBPath)) != filePath() && m_file.PWFileWriteable())
            return Qt::CopyAction;
        return Qt::IgnoreAction;
    };
    d.acceptDrop = [this](QWCellTableViewArray *, const QMimeData *mime, int) {
        if (!mime->hasFormat(kPWItems))
            return false;
        const QVariantList dropped = archive::decodeKeyedArchive(mime->data(kPWItems)).toList();
        EntryList &list = m_file.passwordArray();
        QString first;
        for (const QVariant &v : dropped) {
            Entry e = v.toMap();
            e.insert(EntryKey::Path, droppedEntryName(list, e.value(EntryKey::Path).toString()));
            if (first.isNull())
                first = e.value(EntryKey::Path).toString();
            list.append(e);
        }
        passwordTable->reloadData();
        const qsizetype row = entryWithName(list, first);
        passwordTable->selectRowAlone(int(row));
        passwordTable->scrollTo(passwordTable->model()->index(int(row), 0));
        QWCellTableViewArrayChanged();
        return true;
    };
    d.registerForDraggedTypes = [](QWCellTableViewArray *t) { t->registerForDraggedTypes({kPWItems, kDBPath}); };
    passwordTable->initWithArray(&m_file.passwordArray(), d, {EntryKey::Button, EntryKey::Path});
    selectionDidChange();
    passwordTable->setFocus();
    updateTimer.start();
    if (isActiveWindow() && !m_isMain)
        windowDidBecomeMain();
    else if (gWebsiteDocument == this)
        m_wpm->initRecentWebsitesMenu(gRecentWebsitesMenu, m_file.recentWebsiteTitles());
    Q_EMIT opened();
}

void MyDocument::reloadTable()
{
    // The list may have been read again or merged: a single selected entry stays selected
    // (and current) wherever it is now, rather than whatever took its row.
    const QList<int> rows = passwordTable->selectedRows();
    const QString selected = rows.size() == 1 ? m_selectedName : QString();
    passwordTable->reloadData();
    if (!selected.isNull()) {
        const qsizetype row = entryWithName(m_file.passwordArray(), selected);
        if (row >= 0)
            passwordTable->selectRowAlone(int(row));
        else
            passwordTable->clearSelection();
    }
    selectionDidChange();
}

int MyDocument::readFileIfChangedKeeping(int row)
{
    const QString name = entryName(m_file.passwordArray().value(row));
    if (row < 0 || row >= m_file.passwordArray().size())
        return -1;
    if (!m_file.readPasswordFileDataIfChanged().entriesReloaded)
        return row;
    reloadTable();
    return int(entryWithName(m_file.passwordArray(), name));
}

void MyDocument::entriesReplaced()
{
    if (m_opened)
        reloadTable();
}

void MyDocument::titlesReplaced()
{
    if (m_opened && gWebsiteDocument == this)
        m_wpm->initRecentWebsitesMenu(gRecentWebsitesMenu, m_file.recentWebsiteTitles());
}

void MyDocument::selectionDidChange()
{
    const bool writable = m_file.PWFileWriteable();
    const QList<int> rows = passwordTable->selectedRows();
    const bool one = rows.size() == 1;
    duplicateButton->setEnabled(writable && one);
    if (one && !callout) {
        m_selectedName = entryName(m_file.passwordArray().value(rows.first()));
        if (gWebsiteDocument == this || !gWebsiteDocument)
            gWebsiteItem.setListEntry(this, m_selectedName);
    } else if (!callout) {
        m_selectedName.clear();
        gWebsiteItem.forget(this);
    }
    notFoundMessage->hide();
    validateMenuItems();
}

void MyDocument::addEntry()
{
    if (m_opened && m_file.PWFileWriteable() && !callout)
        passwordTable->addEntryToTable();
}

void MyDocument::editEntry()
{
    const QList<int> rows = passwordTable->selectedRows();
    if (rows.size() == 1)
        passwordTable->editWithDelegate(rows.first());
}

void MyDocument::duplicateEntry()
{
    const QList<int> rows = passwordTable->selectedRows();
    if (!m_file.PWFileWriteable() || rows.size() != 1)
        return;
    ::tess::duplicateEntry(m_file.passwordArray(), rows.first());
    passwordTable->clearSelection();
    passwordTable->reloadData();
    QWCellTableViewArrayChanged();
}

void MyDocument::confirmDelete()
{
    const QList<int> rows = passwordTable->selectedRows();
    if (!m_file.PWFileWriteable() || rows.isEmpty() || callout)
        return;
    if (gPrefs && gPrefs->boolForKey(Pref::ConfirmDelete)) {
        const QString message = rows.size() < 2 ? QStringLiteral("Are you sure you want to delete the selected entry?")
                                                : QStringLiteral("Are you sure you want to delete the selected entries?");
        if (!prompt(message, QStringLiteral("Delete"), QStringLiteral("Cancel")))
            return;
    }
    for (qsizetype i = rows.size() - 1; i >= 0; --i)
        m_wpm->deleteRecentWebsiteMenuItemWithTitle(entryName(m_file.passwordArray().value(rows[i])));
    passwordTable->deleteSelectedEntriesFromTable();
}

void MyDocument::importPasswordDataBegin()
{
    if (!m_opened || !m_file.PWFileWriteable() || callout)
        return;
    // The import's target is the current document.
    gWebsiteDocument = this;
    gWPM = m_wpm;
    ImportDialog::importPasswordDataBegin(this);
}

void MyDocument::find()
{
    searchField->setFocus();
    searchField->selectAll();
}

void MyDocument::search(bool forward)
{
    notFoundMessage->hide();
    const QString text = searchField->text();
    if (text.isEmpty())
        return;
    const QList<int> rows = passwordTable->selectedRows();
    const qsizetype found = searchStep(m_file.passwordArray(), rows.size() == 1 ? rows.first() : -1, text, forward);
    if (found < 0) {
        notFoundMessage->show();
        return;
    }
    passwordTable->selectRowAlone(int(found));
    passwordTable->scrollTo(passwordTable->model()->index(int(found), 0));
}

void MyDocument::goToURL(int row)
{
    row = readFileIfChangedKeeping(row);
    if (row < 0)
        return;
    gWebsiteItem.setListEntry(this, entryName(m_file.passwordArray().value(row)));
    m_wpm->goTo();
}

void MyDocument::goToRecent(const QString &title)
{
    const qsizetype row = entryWithName(m_file.passwordArray(), title);
    if (row < 0)
        return; // a stale title stays in the menu
    gWebsiteItem.setListEntry(this, title);
    m_wpm->goTo();
}

void MyDocument::runPWDataCalloutForEntry(int row, bool creating)
{
    saveMsg->hide();
    const Entry entry = m_file.passwordArray().value(row).toMap();
    QStringList entryNames;
    for (const QVariant &v : m_file.passwordArray())
        entryNames.append(entryName(v));
    if (creating)
        entryNames.removeLast();
    else
        entryNames.removeAll(entry.value(EntryKey::Path).toString());
    if (gController) {
        QList<EntryEditor::Browser> browsers;
        for (const BrowserInfo &b : gController->login()->browsers())
            browsers.append({b.title, b.desktopID});
        pwDataCalloutView->setBrowsers(browsers);
    }
    pwDataCalloutView->load(entry, entryNames);
    gWebsiteDocument = this;
    gWPM = m_wpm;
    gWebsiteItem.setEditedEntry(this, &pwDataCalloutView->editedEntry());
    setEnabledForCalloutSaveChanges();
    passwordTable->selectRowAlone(row);
    passwordTable->scrollTo(passwordTable->model()->index(row, 0));

    const QRect r = passwordTable->visualRect(passwordTable->model()->index(row, 1));
    const QPoint inWindow = passwordTable->viewport()->mapTo(this, r.topLeft());
    const int y = inWindow.y() + r.height() / 2 + 2;
    const QPoint left(inWindow.x() - r.x(), y), right(inWindow.x() - r.x() + width() - 42, y);
    pwDataCalloutView->show();
    callout = new CXAttachedWindow(pwDataCalloutView, this, left, right, r.height() / 2 + 2);
    callout->setWindowTitle(QStringLiteral("Entry"));
    // The list must not be replaced under the open editor.
    updateTimer.stop();
    QTimer::singleShot(0, this, [this, row, creating] { finishRunCallout(row, creating); });
}

void MyDocument::finishRunCallout(int row, bool creating)
{
    if (!callout)
        return;
    pwDataCalloutView->notesText->moveCursor(QTextCursor::Start);
    pwDataCalloutView->nameText->setFocus();
    pwDataCalloutView->nameText->selectAll();
    const int code = callout->runModal();
    pwDataCalloutView->hide();
    pwDataCalloutView->setParent(this);
    callout->detach();
    callout->deleteLater();
    callout = nullptr;
    if (m_opened)
        updateTimer.start();
    EntryList &list = m_file.passwordArray();
    if (code == 1 && row < list.size()) {
        const QString oldName = pwDataCalloutView->originalEntry().value(EntryKey::Path).toString();
        const QString newName = pwDataCalloutView->editedEntry().value(EntryKey::Path).toString();
        if (oldName != newName)
            m_wpm->renameRecentWebsiteTitle(oldName, newName);
        list[row] = pwDataCalloutView->editedEntry();
        passwordTable->reloadData();
        passwordTable->selectRowAlone(row);
        QWCellTableViewArrayChanged();
    } else if (creating && !list.isEmpty()) {
        list.removeLast();
        passwordTable->reloadData();
        passwordTable->clearSelection();
    }
    selectionDidChange();
}

void MyDocument::setEnabledForCalloutSaveChanges()
{
    pwDataCalloutView->setEnabledForCalloutSaveChanges(m_file.PWFileWriteable());
}

bool MyDocument::prompt(const QString &message, const QString &defaultChoice, const QString &otherChoice)
{
    promptPanel->setUp(message, defaultChoice, otherChoice);
    return runPanel(promptPanel, this);
}

void MyDocument::QWCellTableViewArrayChanged()
{
    notFoundMessage->hide();
    saveMsg->show();
    QTimer::singleShot(0, this, &MyDocument::actuallyDoQWCellTableViewArrayChanged);
}

void MyDocument::actuallyDoQWCellTableViewArrayChanged()
{
    const QList<int> rows = passwordTable->selectedRows();
    const QString remembered = rows.size() == 1 ? entryName(m_file.passwordArray().value(rows.first())) : QString();
    m_file.save(); // sorts; a failure is told through showMessage
    passwordTable->reloadData();
    if (!remembered.isNull()) {
        const qsizetype row = entryWithName(m_file.passwordArray(), remembered);
        passwordTable->selectRowAlone(int(row));
        passwordTable->scrollTo(passwordTable->model()->index(int(row), 0));
    }
    saveMsg->hide();
    selectionDidChange();
}

void MyDocument::changePassword()
{
    if (m_opened)
        m_file.changePassword();
    validateMenuItems();
}

void MyDocument::toggleSavePWInKeychain()
{
    if (!m_opened)
        return;
    m_file.toggleSavePWInKeychain(m_file.passwordInKeychain());
    validateMenuItems();
}

bool MyDocument::askPassword(const QString &promptText, QString *password)
{
    framisPanel->setPrompt(promptText);
    if (!runPanel(framisPanel, this))
        return false;
    *password = framisPanel->password();
    framisPanel->framisText->clear();
    return true;
}

bool MyDocument::askNewPassword(QString *password)
{
    framisChangePanel->clear();
    if (!runPanel(framisChangePanel, this))
        return false;
    *password = framisChangePanel->newFramis->text();
    framisChangePanel->clear();
    return true;
}

void MyDocument::showMessage(const QString &message)
{
    prompt(message, QStringLiteral("OK"));
}

bool MyDocument::isOwnWindow(QWidget *w) const
{
    for (; w; w = w->parentWidget())
        if (w == this)
            return true;
    return false;
}

void MyDocument::changeEvent(QEvent *event)
{
    QMainWindow::changeEvent(event);
    if (event->type() != QEvent::ActivationChange || !m_opened)
        return;
    if (isActiveWindow()) {
        if (!m_isMain)
            windowDidBecomeMain();
        return;
    }
    // Our own panels and callout take the focus without this window stopping being main.
    QTimer::singleShot(0, this, [this] {
        if (m_isMain && !isOwnWindow(QApplication::activeWindow()))
            windowDidResignMain();
    });
}

void MyDocument::windowDidResignMain()
{
    m_isMain = false;
    m_promptForPasswordOption = gPrefs ? int(gPrefs->integerForKey(Pref::PasswordPrompt)) : 0;
    if (m_promptForPasswordOption == 0)
        return;
    if (m_promptForPasswordOption == 1) {
        setPromptForPassword();
        return;
    }
    passwordTimer.start((m_promptForPasswordOption * 60 - 60) * 1000);
}

void MyDocument::setPromptForPassword()
{
    passwordTimer.stop();
    m_promptForPassword = true;
    // Nobody passing by reads the entry names of a locked document.
    passwordTable->hide();
    lockedMessage->show();
    // A locked document's entry is typed by no hot key, and no login of it goes on.
    if (gController)
        gController->login()->cancelFor(this);
    gWebsiteItem.forget(this);
    if (gWebsiteDocument == this) {
        gWebsiteDocument = nullptr;
        gWPM = nullptr;
    }
}

void MyDocument::windowDidBecomeMain()
{
    m_isMain = true;
    passwordTimer.stop();
    if (m_promptForPassword) {
        m_promptForPassword = false;
        recheckPassword();
        if (m_closing)
            return;
        lockedMessage->hide();
        passwordTable->show();
    }
    gWebsiteDocument = this;
    gWPM = m_wpm;
    m_wpm->resetRecentWebsitesMenu(gRecentWebsitesMenu);
    selectionDidChange();
}

void MyDocument::recheckPassword()
{
    if (!m_file.recheckPassword()) {
        m_closing = true;
        QTimer::singleShot(0, this, &QWidget::close);
    }
}

void MyDocument::closeEvent(QCloseEvent *event)
{
    if (callout) {
        event->ignore();
        return;
    }
    updateTimer.stop();
    passwordTimer.stop();
    if (gController)
        gController->login()->cancelFor(this);
    m_file.close();
    gWebsiteItem.forget(this);
    if (gWebsiteDocument == this) {
        m_wpm->initRecentWebsitesMenu(gRecentWebsitesMenu, {});
        gWebsiteDocument = nullptr;
        gWPM = nullptr;
    }
    Q_EMIT closed(this); // still open: the controller may remember it
    m_opened = false;
    event->accept();
}

} // namespace tess
