#include "ShortcutRecorder.h"

#include "platform/x11/XkbKeyboardLayout.h"

#include <QApplication>
#include <QKeyEvent>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QPainter>
#include <QPainterPath>

namespace tess {

namespace {

quint64 cocoaFlagsForQt(Qt::KeyboardModifiers m)
{
    quint64 flags = 0;
    if (m & Qt::ControlModifier)
        flags |= CocoaMask::Command;
    if (m & Qt::AltModifier)
        flags |= CocoaMask::Option;
    if (m & Qt::MetaModifier)
        flags |= CocoaMask::Control;
    if (m & Qt::ShiftModifier)
        flags |= CocoaMask::Shift;
    return flags;
}

quint64 cocoaFlagForModifierKey(int key)
{
    switch (key) {
    case Qt::Key_Control: return CocoaMask::Command;
    case Qt::Key_Alt:
    case Qt::Key_AltGr: return CocoaMask::Option;
    case Qt::Key_Meta:
    case Qt::Key_Super_L:
    case Qt::Key_Super_R: return CocoaMask::Control;
    case Qt::Key_Shift: return CocoaMask::Shift;
    case Qt::Key_CapsLock: return CocoaMask::CapsLock;
    default: return 0;
    }
}

// Keys that carry the function-key bit, as they do where the stored codes come from: the
// F-keys, arrows and the navigation block.
bool isFunctionKey(int keyCode)
{
    static const QSet<int> keys = {122, 120, 99, 118, 96, 97, 98, 100, 101, 109, 103, 111, 105, 107, 113, 106, 64, 79, 80, 90,
                                   123, 124, 125, 126, 115, 119, 116, 121, 117, 114};
    return keys.contains(keyCode);
}

// Without an X server (offscreen tests): the key's code by Qt key, on a US keyboard.
int keyCodeForQtKey(int key)
{
    static const QHash<int, int> table = [] {
        QHash<int, int> t;
        const char *letters = "ASDFHGZXCVBQWERYT";
        const int codes[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 11, 12, 13, 14, 15, 16, 17};
        for (int i = 0; letters[i]; ++i)
            t.insert(Qt::Key_A + (letters[i] - 'A'), codes[i]);
        const std::pair<int, int> rest[] = {
            {Qt::Key_U, 32}, {Qt::Key_I, 34}, {Qt::Key_O, 31}, {Qt::Key_P, 35}, {Qt::Key_L, 37}, {Qt::Key_J, 38},
            {Qt::Key_K, 40}, {Qt::Key_N, 45}, {Qt::Key_M, 46}, {Qt::Key_1, 18}, {Qt::Key_2, 19}, {Qt::Key_3, 20},
            {Qt::Key_4, 21}, {Qt::Key_5, 23}, {Qt::Key_6, 22}, {Qt::Key_7, 26}, {Qt::Key_8, 28}, {Qt::Key_9, 25},
            {Qt::Key_0, 29}, {Qt::Key_Space, 49}, {Qt::Key_Escape, 53}, {Qt::Key_Backspace, 51},
            {Qt::Key_Delete, 117}, {Qt::Key_Return, 36}, {Qt::Key_Tab, 48}, {Qt::Key_Left, 123},
            {Qt::Key_Right, 124}, {Qt::Key_Down, 125}, {Qt::Key_Up, 126}, {Qt::Key_F1, 122}, {Qt::Key_F2, 120},
            {Qt::Key_F3, 99}, {Qt::Key_F4, 118}, {Qt::Key_F5, 96}, {Qt::Key_F6, 97}, {Qt::Key_F7, 98},
            {Qt::Key_F8, 100}, {Qt::Key_F9, 101}, {Qt::Key_F10, 109}, {Qt::Key_F11, 103}, {Qt::Key_F12, 111}};
        for (const auto &[k, c] : rest)
            t.insert(k, c);
        return t;
    }();
    return table.value(key, -1);
}

QList<SRMenuItem> menuItems(const QList<QAction *> &actions)
{
    QList<SRMenuItem> items;
    for (QAction *action : actions) {
        if (action->isSeparator())
            continue;
        SRMenuItem item;
        item.title = action->text().remove(u'&');
        if (!action->shortcut().isEmpty()) {
            const QKeyCombination combo = action->shortcut()[0];
            item.keyEquivalent = QKeySequence(combo.key()).toString(QKeySequence::PortableText);
            item.modifierFlags = cocoaFlagsForQt(combo.keyboardModifiers());
        }
        if (QMenu *submenu = action->menu())
            item.submenu = menuItems(submenu->actions());
        items.append(item);
    }
    return items;
}

const XkbKeyboardLayout *xkbLayout()
{
    return dynamic_cast<const XkbKeyboardLayout *>(SRKeyCodeTransformer::keyboardLayout());
}

} // namespace

ShortcutRecorder::ShortcutRecorder(const QString &autosaveName, QWidget *parent) : QWidget(parent)
{
    setFocusPolicy(Qt::StrongFocus);
    setMouseTracking(true);
    setAttribute(Qt::WA_InputMethodEnabled, false);
    m_cell.setCanCaptureGlobalHotKeys(true);
    m_cell.setAnimates(true);
    m_cell.setStyle(1);
    m_cell.showAlert = [this](const SRError &error) {
        const bool grabbed = m_grabbed;
        setKeyboardGrabbed(false); // the alert needs the keyboard
        QMessageBox box(QMessageBox::Critical, QApplication::applicationName(), error.localizedDescription,
                        QMessageBox::NoButton, this);
        box.setInformativeText(error.localizedRecoverySuggestion);
        box.addButton(error.localizedRecoveryOptions.value(0, QStringLiteral("OK")), QMessageBox::AcceptRole);
        box.exec();
        if (grabbed && m_cell.isRecording())
            setKeyboardGrabbed(true);
    };
    m_cell.beep = [] { QApplication::beep(); };
    m_cell.setSystemHotKeysOff = [this](bool off) { setKeyboardGrabbed(off); };
    m_cell.currentModifierFlags = [] { return cocoaFlagsForQt(QGuiApplication::queryKeyboardModifiers()); };
    connect(&m_cell, &SRRecorderCell::needsDisplay, this, qOverload<>(&QWidget::update));
    connect(&m_cell, &SRRecorderCell::keyComboDidChange, this,
            [this](KeyCombo combo) { Q_EMIT shortcutChanged(quint32(combo.code), combo.flags); });
    m_cell.setAutosaveName(autosaveName);
}

ShortcutRecorder::~ShortcutRecorder()
{
    m_cell.setSystemHotKeysOff = nullptr;
    setKeyboardGrabbed(false);
}

void ShortcutRecorder::setValidator(std::function<bool(int, quint64, QString *)> isTaken)
{
    m_cell.isKeyCodeAndFlagsTakenHook = std::move(isTaken);
}

QList<SRMenuItem> ShortcutRecorder::applicationMenus()
{
    QList<SRMenuItem> menus;
    for (QWidget *window : QApplication::topLevelWidgets())
        for (QMenuBar *bar : window->findChildren<QMenuBar *>())
            menus += menuItems(bar->actions());
    return menus;
}

QSize ShortcutRecorder::sizeHint() const
{
    return {fontMetrics().horizontalAdvance(QStringLiteral("Click to record hotkey")) + height() + 24,
            fontMetrics().height() + 10};
}

QRect ShortcutRecorder::buttonRect() const
{
    const int side = height() - 8;
    return {width() - side - 4, 4, side, side};
}

void ShortcutRecorder::setKeyboardGrabbed(bool grabbed)
{
    if (grabbed == m_grabbed)
        return;
    m_grabbed = grabbed;
    if (grabbed)
        grabKeyboard();
    else
        releaseKeyboard();
}

void ShortcutRecorder::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF frame = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    QPainterPath path;
    path.addRoundedRect(frame, height() / 2.0, height() / 2.0);
    // How far towards the recording look: eased during a transition.
    double recording = m_cell.isRecording() ? 1 : 0;
    if (m_cell.isAnimatingNow()) {
        const double eased = SRAnimationEaseInOut(m_cell.transitionProgress());
        recording = m_cell.isAnimatingTowardsRecording() ? eased : 1 - eased;
    }
    const QColor base = palette().color(QPalette::Base);
    const QColor highlight = palette().color(QPalette::Highlight);
    auto mix = [](const QColor &a, const QColor &b, double t) {
        return QColor::fromRgbF(float(a.redF() * (1 - t) + b.redF() * t), float(a.greenF() * (1 - t) + b.greenF() * t),
                                float(a.blueF() * (1 - t) + b.blueF() * t));
    };
    p.fillPath(path, mix(base, highlight.lighter(170), recording));
    p.setPen(hasFocus() ? highlight : palette().color(QPalette::Mid));
    p.drawPath(path);

    const QRect button = buttonRect();
    const bool showButton = m_cell.isRecording() || !m_cell.isEmpty();
    QRect textRect = rect().adjusted(8, 0, showButton ? -button.width() - 8 : -8, 0);
    const bool placeholder = !m_cell.isRecording() && m_cell.isEmpty();
    p.setPen(placeholder ? palette().color(QPalette::PlaceholderText) : palette().color(QPalette::Text));
    p.drawText(textRect, Qt::AlignCenter, m_cell.displayText());
    if (showButton) {
        // Clear (×), or while recording snap back to the old combination (↶).
        p.setPen(Qt::NoPen);
        p.setBrush(palette().color(m_mouseDown ? QPalette::Dark : QPalette::Mid));
        p.drawEllipse(button);
        p.setPen(palette().color(QPalette::Base));
        p.drawText(button, Qt::AlignCenter, m_cell.isRecording() ? QString(QChar(0x21B6)) : QString(QChar(0x00D7)));
    }
}

bool ShortcutRecorder::event(QEvent *event)
{
    if (m_cell.isRecording() || m_cell.isAnimatingNow()) {
        if (event->type() == QEvent::ShortcutOverride) {
            event->accept(); // every key comes to us while recording, menu shortcuts too
            return true;
        }
        // Tab and Backtab are combinations to record, not focus moves.
        if (event->type() == QEvent::KeyPress) {
            keyPressEvent(static_cast<QKeyEvent *>(event));
            return true;
        }
    }
    return QWidget::event(event);
}

bool ShortcutRecorder::handleKey(QKeyEvent *event)
{
    if (const quint64 modifier = cocoaFlagForModifierKey(event->key())) {
        m_cell.flagsChanged(cocoaFlagsForQt(event->modifiers()) | (event->type() == QEvent::KeyPress ? modifier : 0));
        return true;
    }
    if (event->type() != QEvent::KeyPress)
        return false;
    const XkbKeyboardLayout *layout = xkbLayout();
    int code = layout && event->nativeScanCode() ? layout->keyCodeForKeycode(event->nativeScanCode()) : -1;
    if (code < 0)
        code = keyCodeForQtKey(event->key());
    quint64 flags = cocoaFlagsForQt(event->modifiers());
    if (isFunctionKey(code))
        flags |= CocoaMask::Function;
    // The key's own character on the layout, as if no modifier were held (dead keys included);
    // named keys (Escape, arrows, F-keys) by their names.
    QString bare = layout ? layout->characterForKeyCode(code, false, false) : QString();
    if (bare.isEmpty() && code >= 0)
        bare = SRStringForKeyCode(code);
    if (bare.isEmpty() && !event->text().isEmpty() && event->text().at(0).unicode() >= 0x20)
        bare = event->text().toLower();
    const QString characters = event->text().isEmpty() ? bare : event->text();
    return m_cell.performKeyEquivalent(code, flags, characters, bare, hasFocus());
}

void ShortcutRecorder::keyPressEvent(QKeyEvent *event)
{
    if (!handleKey(event))
        QWidget::keyPressEvent(event);
}

void ShortcutRecorder::keyReleaseEvent(QKeyEvent *event)
{
    if (!handleKey(event))
        QWidget::keyReleaseEvent(event);
}

void ShortcutRecorder::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return QWidget::mousePressEvent(event);
    m_mouseDown = true;
    update();
}

void ShortcutRecorder::mouseMoveEvent(QMouseEvent *event)
{
    const bool showButton = m_cell.isRecording() || !m_cell.isEmpty();
    m_cell.setMouseInsideTrackingArea(showButton && buttonRect().contains(event->position().toPoint()));
}

void ShortcutRecorder::leaveEvent(QEvent *)
{
    m_cell.setMouseInsideTrackingArea(false);
}

void ShortcutRecorder::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton || !m_mouseDown)
        return QWidget::mouseReleaseEvent(event);
    m_mouseDown = false;
    const QPoint at = event->position().toPoint();
    const bool showButton = m_cell.isRecording() || !m_cell.isEmpty();
    using Where = SRRecorderCell::MouseUp;
    m_cell.mouseReleased(showButton && buttonRect().contains(at) ? Where::InButton
                         : rect().contains(at)                   ? Where::InCell
                                                                 : Where::Outside);
    if (isEnabled())
        setFocus(Qt::MouseFocusReason);
    update();
}

void ShortcutRecorder::focusOutEvent(QFocusEvent *event)
{
    // Our own alert takes the focus for a moment; recording goes on under it.
    if (!QApplication::activeModalWidget() || QApplication::activeModalWidget() == window())
        m_cell.resignFirstResponder();
    QWidget::focusOutEvent(event);
}

} // namespace tess
