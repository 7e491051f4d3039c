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

// Makes writes past `bytes` fail in this process, as a full disk would, for the life of the
// object (RLIMIT_FSIZE, with SIGXFSZ ignored).
class FileSizeLimit {
public:
    explicit FileSizeLimit(qint64 bytes);
    ~FileSizeLimit();
    FileSizeLimit(const FileSizeLimit &) = delete;
    FileSizeLimit &operator=(const FileSizeLimit &) = delete;

private:
    unsigned long long m_saved;
};

// Sets an environment variable for the life of the object.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char *name, const QByteArray &value) : m_name(name), m_saved(qgetenv(name))
    {
        qputenv(name, value);
    }
    ~ScopedEnvironment()
    {
        if (m_saved.isNull())
            qunsetenv(m_name);
        else
            qputenv(m_name, m_saved);
    }
    ScopedEnvironment(const ScopedEnvironment &) = delete;
    ScopedEnvironment &operator=(const ScopedEnvironment &) = delete;

private:
    const char *m_name;
    QByteArray m_saved;
};

} // namespace tess::testsupport
