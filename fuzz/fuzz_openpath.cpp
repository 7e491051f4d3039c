// libFuzzer target: the whole opening of a password file, from the encrypted file on disk
// through decryption, the archive and the entry-list check, then a save and a second opening.
// An opening must write nothing, and what it opened must come back from the save unchanged.
//
// The first input byte chooses the case: bit 0 a pre-2.0 file (typedstream) rather than a
// current one, bit 1 the rest taken as the encrypted file itself rather than as its
// plaintext, bit 2 the same bytes as the recent-websites file too.
#include "core/entries/EntryList.h"
#include "core/storage/PasswordFile.h"
#include "core/storage/QWCrypt.h"
#include "support/ArchiveSupport.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QTemporaryDir>

#include <cstdint>
#include <cstdlib>

namespace {

class Answer : public tess::PasswordFileDelegate {
public:
    bool askPassword(const QString &prompt, QString *password) override
    {
        if (prompt.startsWith(tess::PasswordFile::kPasswordIncorrect))
            return false;
        *password = QStringLiteral("pw");
        return true;
    }
    bool askNewPassword(QString *) override { return false; }
    void showMessage(const QString &) override {}
};

struct Setup {
    QTemporaryDir home;
    tess::QWCrypt current{QStringLiteral("Tessaline"), QStringLiteral("F"), nullptr};
    tess::QWCrypt pre20{QStringLiteral("Tessaline"), QStringLiteral("F"), nullptr};
    Setup()
    {
        qputenv("HOME", QFile::encodeName(home.path()));
        current.setCurrentParameters();
        current.setKeyFrom(QStringLiteral("pw"), true);
        pre20.setPre20Parameters();
        pre20.setKeyFrom(QStringLiteral("pw"), true);
    }
};

QByteArray digest(const QString &path)
{
    QCryptographicHash hash(QCryptographicHash::Sha256);
    QDirIterator it(path, QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    QStringList names;
    while (it.hasNext())
        names.append(it.next());
    names.sort();
    for (const QString &name : std::as_const(names)) {
        QFile f(name);
        hash.addData(QFile::encodeName(name));
        if (f.open(QIODevice::ReadOnly))
            hash.addData(f.readAll());
    }
    return hash.result();
}

void check(bool ok, const char *what)
{
    if (!ok) {
        std::fprintf(stderr, "fuzz_openpath: %s\n", what);
        std::abort();
    }
}

bool write(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static Setup s;
    if (size < 1)
        return 0;
    const bool pre20 = data[0] & 1, raw = data[0] & 2, titlesToo = data[0] & 4;
    const QByteArray bytes(reinterpret_cast<const char *>(data + 1), qsizetype(size - 1));
    const QString package = s.home.path() + QStringLiteral("/F.qvm");
    QDir(package).removeRecursively();
    QDir().mkpath(package);
    const QByteArray cipher = raw ? bytes : (pre20 ? s.pre20 : s.current).doCrypt(bytes, true);
    const QString ext = pre20 ? QStringLiteral(".qvme") : QStringLiteral(".qvmi");
    check(write(package + QStringLiteral("/Data") + ext, cipher), "cannot write the package");
    if (titlesToo)
        check(write(package + QStringLiteral("/Recent Websites") + ext, cipher), "cannot write the package");
    const QByteArray before = digest(package);

    Answer answer;
    tess::EntryList expected;
    {
        tess::PasswordFile file(package, nullptr, &answer);
        const auto opened = file.open(tess::PasswordFile::KeychainUse::Never, tess::PasswordFile::Writes::AtFirstSave);
        check(digest(package) == before, "opening wrote to the package");
        if (opened != tess::PasswordFile::OpenResult::Opened)
            return 0;
        check(tess::isEntryList(file.passwordArray()), "opened something that is not an entry list");
        expected = file.passwordArray();
        tess::sortEntries(expected);
        check(file.save(), "what was read cannot be saved");
    }
    tess::PasswordFile again(package, nullptr, &answer);
    check(again.open(tess::PasswordFile::KeychainUse::Never, tess::PasswordFile::Writes::AtFirstSave)
              == tess::PasswordFile::OpenResult::Opened,
          "what was saved does not open");
    QString where;
    check(tess::testsupport::identical(again.passwordArray(), expected, &where), qPrintable(where));
    return 0;
}
