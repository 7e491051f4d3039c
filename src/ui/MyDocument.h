#pragma once
// One password file's window: the entry table, its buttons, find, the entry editor callout,
// the panels, saving after every change, the change watcher and the re-lock prompt.

#include "core/storage/PasswordFile.h"

#include <QMainWindow>
#include <QPointer>
#include <QTimer>

class QAction;
class QLabel;
class QLineEdit;
class QMenu;
class QPushButton;
class QToolButton;

namespace tess {

class CXAttachedWindow;
class EntryEditor;
class ChangePasswordPanel;
class Keychain;
class PasswordPanel;
class PromptPanel;
class QWCellTableViewArray;
class WebsitePasswordManager;

class MyDocument : public QMainWindow, public PasswordFileDelegate {
    Q_OBJECT

public:
    MyDocument(const QString &packagePath, Keychain *keychain, QWidget *parent = nullptr);
    ~MyDocument() override;

    QString filePath() const { return m_file.packagePath(); }
    PasswordFile &file() { return m_file; }
    bool isOpen() const { return m_opened; }
    WebsitePasswordManager *wpm() const { return m_wpm; }

    // The opening sequence, run once the window is on screen.
    void openDatabase();

    // Actions.
    void addEntry();
    void confirmDelete();
    void duplicateEntry();
    void editEntry();
    void find();
    void search(bool forward);
    void changePassword();
    void toggleSavePWInKeychain();
    void goToURL(int row);
    void goToRecent(const QString &title);

    // The entry editor in its callout, attached to the entry's row.
    void runPWDataCalloutForEntry(int row, bool creating);
    void setEnabledForCalloutSaveChanges();
    // prompt:defaultChoice:otherChoice: — YES when the default button was chosen.
    bool prompt(const QString &message, const QString &defaultChoice, const QString &otherChoice = QString());

    // Shows the saving message and saves on the next pass of the event loop.
    void QWCellTableViewArrayChanged();
    void actuallyDoQWCellTableViewArrayChanged();
    void validateMenuItems();
    bool validateMenuItem(QAction *item) const;

    void windowDidResignMain();
    void windowDidBecomeMain();
    void setPromptForPassword();
    bool promptForPassword() const { return m_promptForPassword; }
    void recheckPassword();

    // PasswordFileDelegate
    bool askPassword(const QString &prompt, QString *password) override;
    bool askNewPassword(QString *password) override;
    void showMessage(const QString &message) override;
    void entriesReplaced() override;
    void titlesReplaced() override;

    // The window's parts, named as the rest of the program knows them.
    QWCellTableViewArray *passwordTable;
    QPushButton *addButton, *deleteButton, *duplicateButton;
    QLabel *readOnlyIcon, *saveMsg, *notFoundMessage, *errorLine;
    // Shown instead of the table while the document waits for its password again.
    QLabel *lockedMessage;
    QLineEdit *searchField;
    QToolButton *searchBackwardButton, *searchForwardButton;
    PasswordPanel *framisPanel;
    PromptPanel *promptPanel;
    ChangePasswordPanel *framisChangePanel;
    QPointer<CXAttachedWindow> callout;
    EntryEditor *pwDataCalloutView;
    QAction *keychainMenuItem;
    QTimer updateTimer;
    QTimer passwordTimer;
    QMenu *fileMenu = nullptr, *editMenu = nullptr;

Q_SIGNALS:
    void opened();
    void closed(MyDocument *document);

protected:
    void closeEvent(QCloseEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    void buildWindow();
    void buildMenus();
    void buildEditor();
    void selectionDidChange();
    void finishRunCallout(int row, bool creating);
    void reloadTable();
    // Reads the file again if it changed outside; answers where the entry at `row` is now
    // (-1 when it is gone).
    int readFileIfChangedKeeping(int row);
    bool isOwnWindow(QWidget *w) const;

    PasswordFile m_file;
    WebsitePasswordManager *m_wpm = nullptr;
    bool m_opened = false;
    bool m_closing = false;
    bool m_isMain = false;
    bool m_promptForPassword = false;
    int m_promptForPasswordOption = 0;
    // The name of the single selected entry, for following it when the list is replaced.
    QString m_selectedName;
};

} // namespace tess
