#pragma once
// One Tessaline per desktop session. The first launch owns a name on the session bus; a later
// launch hands its file arguments to that owner (which opens them and comes forward) and ends.
// The bus lets go of a name when its owner's connection ends, so a crashed instance never
// blocks the next launch.

#include <QObject>
#include <QStringList>

namespace tess {

class SingleInstance : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.tessaline.Tessaline")

public:
    static const QString kServiceName;
    static const QString kObjectPath;

    enum class Role {
        Primary,    // this process owns the name and takes the files of later launches
        HandedOver, // the running instance took the files: this process should end
        Alone,      // no session bus (or an owner that never answered): run on its own
    };

    explicit SingleInstance(QObject *parent = nullptr);
    ~SingleInstance() override;

    // Claims the name, or hands `files` (made absolute here, where they were typed) to its owner.
    Role claimOrHandOver(const QStringList &files);
    // Gives the name up (before the application ends).
    void release();

public Q_SLOTS:
    // The bus method a later launch calls. Answers at once; the files are opened afterwards,
    // so that a password prompt never holds up the caller.
    Q_SCRIPTABLE void openFiles(const QStringList &files);

Q_SIGNALS:
    void filesHandedOver(const QStringList &files);

private:
    bool m_registered = false;
};

} // namespace tess
