#pragma once
// The file panels of File > Open and File > New. A password file is a folder ending in
// ".qvm", but the user meets it as one file: opening one, or anything inside one, chooses the
// package instead of going into it; creating one never goes into or inside an existing package,
// and asks before replacing one.

#include <QFileDialog>

namespace tess {

class PackageFileDialog : public QFileDialog {
    Q_OBJECT

public:
    enum class Purpose { Open, Create };
    PackageFileDialog(Purpose purpose, const QString &title, const QString &directory);

    // The package chosen, once the panel was accepted.
    QString chosenPackage() const { return m_chosen; }
    // Create: the user agreed to replace the existing package of that name.
    bool replaceExisting() const { return m_replace; }

    static const QString kCannotNest;
    static QString alreadyExistsMessage(const QString &name);

public Q_SLOTS:
    void accept() override;

private:
    void enteredDirectory(const QString &directory);
    void choose(const QString &package);
    bool confirmReplacing(const QString &package);

    Purpose m_purpose;
    QString m_chosen;
    bool m_replace = false;
};

} // namespace tess
