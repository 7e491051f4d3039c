#include "core/generator/GeneratePassword.h"

#include <QLocale>

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <bitset>
#include <iterator>

namespace tess {

const char pwChars[72] = "abcdefghijklmnopqrstuvwxyzABCDEFGHJKLMNPQRSTVWXYZ1234567890!-#$%+&()*[]";

namespace {

// The result buffer: at most 47 characters and the terminating zero.
char randomPassword[48];

enum CharClass { Lower, Upper, Digit, Special };
struct ClassRange {
    std::uint32_t first, count;
};
constexpr ClassRange kClasses[] = {{0, 26}, {26, 23}, {49, 10}, {59, 12}};

CharClass classOf(std::uint32_t r)
{
    if (r < 26)
        return Lower;
    if (r <= 48)
        return Upper;
    if (r <= 58)
        return Digit;
    return Special;
}

} // namespace

std::uint32_t clampPasswordLength(qint64 length, bool includeSpecials)
{
    if (length == 0)
        return kDefaultPasswordLength;
    return std::uint32_t(std::clamp<qint64>(length, minPasswordLength(includeSpecials), kMaxPasswordLength));
}

QString GeneratePassword(std::uint32_t length, bool includeSpecials)
{
    // arc4random's numbers, fetched a block at a time: glibc's arc4random asks the kernel on
    // every call, which made a password cost dozens of system calls.
    std::uint32_t block[64];
    std::size_t used = std::size(block);
    const QString password = GeneratePassword(length, includeSpecials, [&] {
        if (used == std::size(block)) {
            arc4random_buf(block, sizeof block);
            used = 0;
        }
        return block[used++];
    });
    explicit_bzero(block, sizeof block);
    return password;
}

QString GeneratePassword(std::uint32_t length, bool includeSpecials, const RandomSource &random)
{
    // 0 means 8; out-of-bounds lengths would never end (too short) or overflow the buffer.
    length = clampPasswordLength(length, includeSpecials);
    const std::uint32_t n = includeSpecials ? 71 : 59;
    bool seen[4] = {false, false, false, !includeSpecials};
    std::bitset<kMaxPasswordLength> isProtected;

    for (std::uint32_t i = 0; i < length; ++i) {
        const std::uint32_t r = random() % n;
        randomPassword[i] = pwChars[r];
        const CharClass c = classOf(r);
        if (!seen[c]) {
            seen[c] = true;
            isProtected.set(i);
        }
    }
    for (int c = Lower; c <= Special; ++c) {
        if (seen[c])
            continue;
        std::uint32_t p = random() % length;
        while (isProtected.test(p))
            p = random() % length;
        // The special fix comes last: nothing after it can overwrite its position.
        if (c != Special)
            isProtected.set(p);
        randomPassword[p] = pwChars[kClasses[c].first + random() % kClasses[c].count];
    }
    randomPassword[length] = 0;
    QString password = QString::fromLatin1(randomPassword, length);
    // The copy is the caller's; the shared buffer keeps no secret behind.
    explicit_bzero(randomPassword, sizeof randomPassword);
    return password;
}

QString notesWithOldPassword(const QString &notes, const QString &oldPassword, const QDateTime &when)
{
    if (oldPassword.isEmpty())
        return notes;
    // The same stamp whatever the user's locale: "dd/MM/yyyy h:mm a" as Unicode patterns read
    // it, with "AM"/"PM" (Qt's "AP"; its "a" would write them in lower case).
    const QString date = QLocale::c().toString(when, QStringLiteral("dd/MM/yyyy h:mm AP"));
    const QString separator = notes.isEmpty() || notes.endsWith(u'\n') ? QString() : QStringLiteral("\n");
    return notes + separator + date + QStringLiteral(": Password was: ") + oldPassword + u'\n';
}

} // namespace tess
