#pragma once
// The application controller: start-up, creating and opening password files, reopening the
// files of the last session, and remembering them at quit.

#include <QList>
#include <QObject>
#include <QPointer>
#include <QStringList>

#include <memory>

class QFileDialog;
class QLineEdit;

namespace tess {

class ApplicationLogin;
class HotKeys;
class Keychain;
class MyDocument;

class Controller : public QObject {
    Q_OBJECT

public:
    static const QString kBadPassword;
    static const QString kBadPasswordInfo;
    static const QString kCreateTitle;
    static const QString kCreateMessage;
    static const QString kAuthorizationNeeded;
    static const QString kEmptyPasswordInfo;
    static const QString kOpenTitle;

    explicit Controller(Keychain *keychain, QObject *parent = nullptr);
    ~Controller() override;

    // awakeFromNib: the start-up sequence.
    void awakeFromNib();
    void warnAuthorization();
    // applicationOpenUntitledFile: reopen the last files, or offer to create one.
    bool applicationOpenUntitledFile();
    // application:openFile: — only ".qvm" packages (anything else is answered with "This is
    // not a Tessaline file."); always answers YES.
    bool openFile(const QString &path);
    // What a later launch of the program handed over: its file arguments (or none).
    void openFilesHandedOver(const QStringList &paths);
    // A launch that leaves no window on screen ends the application; answers whether it did.
    bool quitIfNothingOpen();
    // newDocument: the save panel with the two password fields, until they match or cancel.
    void newDocument();
    // File > Open; answers whether a document was opened.
    bool openDocumentWithDialog();
    // applicationWillTerminate: remember and close the open files.
    void applicationWillTerminate();
    void quit();
    // preferences: the preferences panel, over the active window or alone; emailTheAuthor: the
    // support report.
    void preferences();
    void emailTheAuthor();

    // The two system-wide hot keys, from the settings; a refused combination stays unregistered.
    void registerHotKeys();
    void unRegisterHotKeys();
    // hotKeyHandler: a press of hot key 1 (user ID) or 2 (password); answers whether it went to gWPM.
    static bool hotKeyHandler(quint32 id);
    HotKeys *hotKeys() const { return m_hotKeys; }

    QList<MyDocument *> documents() const;
    MyDocument *documentForPath(const QString &path) const;
    // The application's logins (one at a time), from awakeFromNib on.
    ApplicationLogin *login() const { return m_login.get(); }

    // Set by tests and the screenshot tool: how the new-file panel is answered.
    QPointer<QFileDialog> newFilePanel;
    QPointer<QFileDialog> openFilePanel;
    QLineEdit *framis1 = nullptr;
    QLineEdit *framis2 = nullptr;

Q_SIGNALS:
    void documentOpened(MyDocument *document);

private:
    MyDocument *openDocument(const QString &path);
    QList<MyDocument *> openDocuments() const;
    // Stores "Last PW Files" (removed when there are none) and writes the settings.
    void rememberOpenFiles(const QList<MyDocument *> &docs);
    bool moveAsideForReplacing(const QString &path);
    Keychain *m_keychain;
    std::unique_ptr<ApplicationLogin> m_login;
    QList<QPointer<MyDocument>> m_documents;
    bool m_terminating = false;
    bool m_remembered = false; // "Last PW Files" was taken when the last window closed
    HotKeys *m_hotKeys = nullptr;
};

// "generatedPasswordLength" as start-up normalises it (0 counts as 16).
qint64 normalizedGeneratedPasswordLength(qint64 stored);

} // namespace tess
