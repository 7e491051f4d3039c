#pragma once
// Helpers shared by the test suites and the benchmarks.

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>
#include <QVariant>

namespace tess::testsupport {

// ../shared/fixtures beside the project, or $TESSALINE_FIXTURES; empty when absent.
QString fixturesDir();
QByteArray readFile(const QString &path);

// A typical entry list: n entries with the dozen keys of a real entry, names "Site 00001"...
QVariantList sampleEntries(int n);

// Points HOME and the XDG directories into a fresh temporary directory for the life of the
// object, so that no test touches the real user's files.
class ScopedHome {
public:
    ScopedHome();
    ~ScopedHome();
    QString path() const { return m_dir.path(); }
    bool isValid() const { return m_dir.isValid(); }

private:
    QTemporaryDir m_dir;
    QByteArray m_saved[4];
};

} // namespace tess::testsupport
