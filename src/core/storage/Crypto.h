#pragma once
// Key derivation and deletion primitives of the password-file format.

#include <QByteArray>
#include <QString>

#include <cstddef>

namespace tess {

// HMAC-SHA1 (RFC 2104) over libgcrypt's SHA-1; keys of 65 bytes or more are hashed first.
void hmac_sha1(const unsigned char *text, std::size_t textLength, const unsigned char *key,
               std::size_t keyLength, unsigned char digest[20]);

// PBKDF2 (RFC 2898) with HMAC-SHA1. Answers 0, or -1 when outputLength or rounds is 0.
int pkcs5_pbkdf2(const char *password, std::size_t passwordLength, const unsigned char *salt,
                 std::size_t saltLength, unsigned char *output, std::size_t outputLength,
                 unsigned int rounds);

// Overwrites the file's bytes, then unlinks it. Never through a shell: any path works.
void secureDelete(const QString &path);

// Writes the whole file or nothing: a temporary file beside it, fsync, rename, fsync of the
// directory. Answers false (and leaves the old file) on any failure, a full disk included.
bool writeFileAtomically(const QString &path, const QByteArray &bytes);

// Makes sure libgcrypt is initialised; safe to call often.
void initCrypto();

} // namespace tess
