#pragma once
// The control in which the user records a key combination by pressing it (the preferences'
// two hot keys). Click it or press Space to record; Escape, Backspace or Delete alone cancels;
// the small button clears the combination, or while recording brings the old one back. While
// recording the keyboard is grabbed, so combinations other programs hold reach it too. With an
// autosave name the combination is kept in the settings under "ShortcutRecorder <name>".

#include "core/shortcuts/SRRecorderCell.h"

#include <QWidget>

namespace tess {

class ShortcutRecorder : public QWidget {
    Q_OBJECT

public:
    explicit ShortcutRecorder(const QString &autosaveName = QString(), QWidget *parent = nullptr);
    ~ShortcutRecorder() override;

    // The combination: a Cocoa modifier mask and a virtual key code (-1 for none).
    KeyCombo keyCombo() const { return m_cell.keyCombo(); }
    void setKeyCombo(KeyCombo combo) { m_cell.setKeyCombo(combo); }
    void setKeyCombo(quint64 cocoaFlags, qint64 keyCode) { m_cell.setKeyCombo({cocoaFlags, keyCode}); }
    QString keyComboString() const { return m_cell.keyComboString(); }
    bool isRecording() const { return m_cell.isRecording(); }

    // An extra rule of the owner's, asked before the system-wide and menu tests (for example:
    // not the other hot key's combination). Answer true, and a reason, to refuse.
    void setValidator(std::function<bool(int keyCode, quint64 cocoaFlags, QString *reason)> isTaken);

    // The rest of the cell's settings (allowed and required modifiers, key-only combinations,
    // animation, autosave name).
    SRRecorderCell &cell() { return m_cell; }

    QSize sizeHint() const override;

    // The menus of the application's windows, for the validator's menu search.
    static QList<SRMenuItem> applicationMenus();

Q_SIGNALS:
    // A new combination (recorded, cleared or set); keyCode 0xFFFFFFFF (-1) when cleared.
    void shortcutChanged(quint32 keyCode, quint64 flags);

protected:
    void paintEvent(QPaintEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void keyReleaseEvent(QKeyEvent *event) override;
    bool event(QEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void leaveEvent(QEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;

private:
    QRect buttonRect() const;
    bool handleKey(QKeyEvent *event);
    void setKeyboardGrabbed(bool grabbed);

    SRRecorderCell m_cell;
    bool m_mouseDown = false;
    bool m_grabbed = false;
};

} // namespace tess
