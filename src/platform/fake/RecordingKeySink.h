#pragma once
// A KeySink that records what it is given, for tests of keystroke sequences.

#include "platform/KeySink.h"

#include <QList>
#include <QStringList>

namespace tess {

class RecordingKeySink : public KeySink {
public:
    struct Event {
        int keyCode;
        quint64 flags;
        bool down;
        QString unicode;
        bool operator==(const Event &) const = default;
    };
    void keyEvent(int keyCode, quint64 flags, bool down, const QString &unicode) override
    {
        events.append({keyCode, flags, down, unicode});
    }
    void setClipboard(const QString &text) override { clipboard.append(text); }
    // What the pauses announced, with the keys typed before each.
    void prepareAhead(QStringView characters) override
    {
        preparedAhead.append({typedText(), characters.toString()});
    }

    // The characters typed, in order, joined.
    QString typedText() const
    {
        QString s;
        for (const Event &e : events)
            if (e.down)
                s += e.unicode;
        return s;
    }

    QList<Event> events;
    QStringList clipboard;
    QList<QPair<QString, QString>> preparedAhead;
};

} // namespace tess
