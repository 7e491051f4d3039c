#pragma once
// Random passwords over a fixed alphabet without the easily confused capitals I, O and U,
// with at least one character of each required class.

#include <QDateTime>
#include <QString>

#include <cstdint>
#include <functional>

namespace tess {

// The 71 characters: lower case 0-25, capitals 26-48, digits 49-58, specials 59-70.
extern const char pwChars[72];

// Lengths a caller may ask for: at least one position per required class, at most what the
// result buffer holds.
constexpr std::uint32_t kMaxPasswordLength = 47;
constexpr std::uint32_t kDefaultPasswordLength = 8;
constexpr std::uint32_t minPasswordLength(bool includeSpecials) { return includeSpecials ? 4 : 3; }
// The lengths the generator callout offers.
inline constexpr std::uint32_t kOfferedPasswordLengths[] = {4, 6, 8, 10, 12, 14, 16, 20, 24, 32, 40, 47};
// A length brought within the bounds (0 stands for the default, 8).
std::uint32_t clampPasswordLength(qint64 length, bool includeSpecials);

// The source of randomness: arc4random, or a scripted sequence in tests.
using RandomSource = std::function<std::uint32_t()>;

// GeneratePassword: length 0 means 8. The result is copied out of the shared buffer at once.
// The length must lie within the bounds above (clampPasswordLength).
QString GeneratePassword(std::uint32_t length, bool includeSpecials);
QString GeneratePassword(std::uint32_t length, bool includeSpecials, const RandomSource &random);

// The notes after a new password replaced `oldPassword` at `when`: the old one kept on a line of
// its own, "dd/MM/yyyy h:mm a: Password was: …", after a line feed unless the notes are empty
// or already end with one. An empty old password leaves the notes as they are.
QString notesWithOldPassword(const QString &notes, const QString &oldPassword, const QDateTime &when);

} // namespace tess
