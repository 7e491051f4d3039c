#pragma once
// The US layout as a fixed table, for tests of key names without an X server.

#include "platform/KeyboardLayout.h"

#include <QHash>

namespace tess {

class UsKeyboardLayout : public KeyboardLayout {
public:
    UsKeyboardLayout()
    {
        const char *const plain = "asdfhgzxcv\0bqweryt123465=97-80]ou[ip\0lj'k;\\,/nm.\0\0`";
        const char *const shifted = "ASDFHGZXCV\0BQWERYT!@#$^%+(&_*)}OU{IP\0LJ\"K:|<?NM>\0\0~";
        for (int code = 0; code <= 50; ++code) {
            if (plain[code]) {
                m_plain.insert(code, QString(QLatin1Char(plain[code])));
                m_shifted.insert(code, QString(QLatin1Char(shifted[code])));
            }
        }
        const QList<QPair<int, const char *>> pad = {{65, "."}, {67, "*"}, {69, "+"}, {75, "/"}, {78, "-"}, {81, "="},
                                                     {82, "0"}, {83, "1"}, {84, "2"}, {85, "3"}, {86, "4"}, {87, "5"},
                                                     {88, "6"}, {89, "7"}, {91, "8"}, {92, "9"}};
        for (const auto &[code, c] : pad)
            m_plain.insert(code, QString::fromLatin1(c)), m_shifted.insert(code, QString::fromLatin1(c));
    }
    QString characterForKeyCode(int keyCode, bool shift, bool) const override
    {
        return (shift ? m_shifted : m_plain).value(keyCode);
    }

private:
    QHash<int, QString> m_plain, m_shifted;
};

} // namespace tess
