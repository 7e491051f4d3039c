#pragma once
// UTF-8 to text, every character kept: QString::fromUtf8 drops a leading U+FEFF as a byte
// order mark, but in a password, a name or a note it is part of the text.

#include <QByteArrayView>
#include <QString>
#include <QStringDecoder>

namespace tess {

inline QString utf8Exactly(QByteArrayView bytes)
{
    QStringDecoder decoder(QStringConverter::Utf8, QStringConverter::Flag::ConvertInitialBom);
    return decoder.decode(bytes);
}

} // namespace tess
