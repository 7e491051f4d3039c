#include "FilePanels.h"

#include "core/storage/PasswordFile.h"

#include <QFileIconProvider>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

namespace tess {

namespace {

const QString kSuffix = QStringLiteral("qvm");

// Packages are shown with a document's icon, as the desktop shows files.
class PackageIconProvider : public QFileIconProvider {
public:
    QIcon icon(const QFileInfo &info) const override
    {
        if (info.isDir() && info.suffix() == kSuffix)
            return QFileIconProvider::icon(QFileIconProvider::File);
        return QFileIconProvider::icon(info);
    }
    using QFileIconProvider::icon;
};

QString withSuffix(const QString &path)
{
    return QFileInfo(path).suffix() == kSuffix ? path : path + u'.' + kSuffix;
}

} // namespace

const QString PackageFileDialog::kCannotNest =
    QStringLiteral("A password file cannot be created inside another password file.");

QString PackageFileDialog::alreadyExistsMessage(const QString &name)
{
    return QStringLiteral("\u201c%1\u201d already exists. Do you want to replace it?").arg(name);
}

PackageFileDialog::PackageFileDialog(Purpose purpose, const QString &title, const QString &directory)
    : QFileDialog(nullptr, title, directory), m_purpose(purpose)
{
    // The desktop's own panels would walk into packages like any folder.
    setOption(QFileDialog::DontUseNativeDialog);
    static PackageIconProvider icons;
    setIconProvider(&icons);
    setNameFilter(QStringLiteral("Password files (*.qvm)"));
    if (purpose == Purpose::Open) {
        setAcceptMode(QFileDialog::AcceptOpen);
        setFileMode(QFileDialog::ExistingFile);
    } else {
        setAcceptMode(QFileDialog::AcceptSave);
        setFileMode(QFileDialog::AnyFile);
        setDefaultSuffix(kSuffix);
        setOption(QFileDialog::DontConfirmOverwrite); // asked here, for packages too
    }
    connect(this, &QFileDialog::directoryEntered, this, &PackageFileDialog::enteredDirectory);
}

void PackageFileDialog::enteredDirectory(const QString &directory)
{
    const QString package = PasswordFile::packageContaining(directory);
    if (package.isEmpty())
        return;
    // Later: the panel is still in the middle of its own change of folder.
    QTimer::singleShot(0, this, [this, package] {
        setDirectory(QFileInfo(package).absolutePath());
        if (m_purpose == Purpose::Open) {
            choose(package);
            return;
        }
        // The name goes into the name field, for the user to confirm or change.
        if (auto *name = findChild<QLineEdit *>(QStringLiteral("fileNameEdit")))
            name->setText(QFileInfo(package).fileName());
    });
}

void PackageFileDialog::choose(const QString &package)
{
    m_chosen = package;
    QDialog::accept();
}

bool PackageFileDialog::confirmReplacing(const QString &package)
{
    QMessageBox box(QMessageBox::Warning, windowTitle(), alreadyExistsMessage(QFileInfo(package).fileName()),
                    QMessageBox::NoButton, this);
    box.setInformativeText(QStringLiteral("The password file there now is moved to the trash."));
    QPushButton *replace = box.addButton(QStringLiteral("Replace"), QMessageBox::DestructiveRole);
    box.setDefaultButton(box.addButton(QMessageBox::Cancel));
    box.exec();
    return box.clickedButton() == replace;
}

void PackageFileDialog::accept()
{
    const QStringList files = selectedFiles();
    if (files.isEmpty()) {
        QFileDialog::accept();
        return;
    }
    const QString typed = QDir::cleanPath(files.first());
    if (m_purpose == Purpose::Open) {
        const QString package = PasswordFile::packageContaining(typed);
        if (!package.isEmpty()) {
            choose(package);
            return;
        }
        m_chosen = typed;
        QFileDialog::accept(); // goes into a folder, warns of a missing file, or takes the file
        return;
    }

    const QFileInfo info(typed);
    if (info.isDir() && info.suffix() != kSuffix) {
        QFileDialog::accept(); // a folder's name and Return: go into it
        return;
    }
    const QString path = withSuffix(typed);
    const QString around = PasswordFile::packageContaining(QFileInfo(path).absolutePath());
    if (!around.isEmpty()) {
        QMessageBox::warning(this, windowTitle(), kCannotNest);
        setDirectory(QFileInfo(around).absolutePath());
        return;
    }
    if (QFileInfo::exists(path) || QFileInfo(path).isSymLink()) {
        if (!confirmReplacing(path))
            return;
        m_replace = true;
    }
    choose(path);
}

} // namespace tess
