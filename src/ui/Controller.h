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

    explicit Controller(Keychain *keychain, QObject *parent = nullptr);
    ~Controller() override;

    // awakeFromNib: the start-up sequence.
    void awakeFromNib();
    void warnAuthorization();
    // applicationOpenUntitledFile: reopen the last files, or offer to create one.
    bool applicationOpenUntitledFile();
    // application:openFile: — only ".qvm" packages; always answers YES.
    bool openFile(const QString &path);
    // newDocument: the save panel with the two password fields, until they match or cancel.
    void newDocument();
    void openDocumentWithDialog();
    // applicationWillTerminate: remember and close the open files.
    void applicationWillTerminate();
    void quit();

    QList<MyDocument *> documents() const;
    MyDocument *documentForPath(const QString &path) const;
    // The application's logins (one at a time), from awakeFromNib on.
    ApplicationLogin *login() const { return m_login.get(); }

    // Set by tests and the screenshot tool: how the new-file panel is answered.
    QPointer<QFileDialog> newFilePanel;
    QLineEdit *framis1 = nullptr;
    QLineEdit *framis2 = nullptr;

Q_SIGNALS:
    void documentOpened(MyDocument *document);

private:
    MyDocument *openDocument(const QString &path);
    Keychain *m_keychain;
    std::unique_ptr<ApplicationLogin> m_login;
    QList<QPointer<MyDocument>> m_documents;
    bool m_terminating = false;
};

// "generatedPasswordLength" as start-up normalises it (0 counts as 16).
qint64 normalizedGeneratedPasswordLength(qint64 stored);

} // namespace tess
