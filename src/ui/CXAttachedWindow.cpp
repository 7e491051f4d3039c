#include "CXAttachedWindow.h"

#include "platform/x11/X11Session.h"

#include <QBitmap>
#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>
#include <QScreen>
#include <QVBoxLayout>

namespace tess {

namespace {
constexpr int kArrowHeight = 12;
constexpr int kArrowHalfWidth = 12;
constexpr int kRadius = 8;
} // namespace

CXAttachedWindow::CXAttachedWindow(QWidget *view, QWidget *window, QPoint leftAnchor, QPoint rightAnchor, int distance)
    : QDialog(window, Qt::Dialog | Qt::FramelessWindowHint), m_window(window), m_leftAnchor(leftAnchor),
      m_rightAnchor(rightAnchor), m_distance(distance)
{
    setAttribute(Qt::WA_TranslucentBackground);
    setModal(true);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(12, 12 + kArrowHeight, 12, 12);
    layout->addWidget(view);
    // Attached: it goes where the window goes, also when the window manager places or moves
    // the window after the callout was shown.
    if (window)
        window->window()->installEventFilter(this);
}

bool CXAttachedWindow::eventFilter(QObject *watched, QEvent *event)
{
    if (m_window && watched == m_window->window() && isVisible() && (event->type() == QEvent::Move || event->type() == QEvent::Resize))
        place();
    return QDialog::eventFilter(watched, event);
}

void CXAttachedWindow::place()
{
    if (!m_window)
        return;
    adjustSize();
    // In the coordinates move() takes, those of the window's geometry: asked of the X server
    // instead (mapToGlobal), a callout freshly shown can be seen at the screen's corner.
    const QPoint anchor = m_window->isWindow() ? m_window->geometry().topLeft() + m_leftAnchor : m_window->mapToGlobal(m_leftAnchor);
    const QScreen *onScreen = QGuiApplication::screenAt(anchor);
    if (!onScreen)
        onScreen = m_window->screen() ? m_window->screen() : QGuiApplication::primaryScreen();
    const QRect screen = onScreen->availableGeometry();
    const int w = std::min(std::max(width(), std::min(m_rightAnchor.x() - m_leftAnchor.x(), 560)), screen.width());
    resize(w, height());
    m_arrowUp = anchor.y() + m_distance + height() <= screen.bottom();
    QLayout *l = layout();
    l->setContentsMargins(12, 12 + (m_arrowUp ? kArrowHeight : 0), 12, 12 + (m_arrowUp ? 0 : kArrowHeight));
    const int x = std::clamp(anchor.x() - 28, screen.left(), std::max(screen.left(), screen.right() + 1 - w));
    const int wantedY = m_arrowUp ? anchor.y() + m_distance : anchor.y() - m_distance - height();
    const int y = std::clamp(wantedY, screen.top(), std::max(screen.top(), screen.bottom() + 1 - height()));
    m_arrowX = std::clamp(anchor.x() - x + 12, kRadius + kArrowHalfWidth, w - kRadius - kArrowHalfWidth);
    move(x, y);
    updateMask();
}

void CXAttachedWindow::showEvent(QShowEvent *event)
{
    place();
    QDialog::showEvent(event);
}

void CXAttachedWindow::resizeEvent(QResizeEvent *event)
{
    QDialog::resizeEvent(event);
    updateMask();
}

void CXAttachedWindow::detach()
{
    hide();
    if (m_window)
        m_window->window()->removeEventFilter(this);
    m_window = nullptr;
}

QPainterPath CXAttachedWindow::outline() const
{
    const QRectF body = QRectF(rect()).adjusted(1, m_arrowUp ? kArrowHeight : 1, -1, m_arrowUp ? -1 : -kArrowHeight);
    QPainterPath path;
    path.addRoundedRect(body, kRadius, kRadius);
    QPainterPath arrow;
    if (m_arrowUp) {
        arrow.moveTo(m_arrowX - kArrowHalfWidth, body.top() + 1);
        arrow.lineTo(m_arrowX, 1);
        arrow.lineTo(m_arrowX + kArrowHalfWidth, body.top() + 1);
    } else {
        arrow.moveTo(m_arrowX - kArrowHalfWidth, body.bottom() - 1);
        arrow.lineTo(m_arrowX, height() - 1);
        arrow.lineTo(m_arrowX + kArrowHalfWidth, body.bottom() - 1);
    }
    arrow.closeSubpath();
    return path.united(arrow);
}

void CXAttachedWindow::updateMask()
{
    if (X11Session::translucencyWorks()) {
        clearMask();
        return;
    }
    QBitmap shape(size());
    shape.fill(Qt::color0);
    QPainter p(&shape);
    p.setPen(QPen(Qt::color1, 1));
    p.setBrush(Qt::color1);
    p.drawPath(outline());
    p.end();
    setMask(shape);
}

void CXAttachedWindow::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    // Edges blended with the transparent background would show as dark fringes in a mask.
    p.setRenderHint(QPainter::Antialiasing, mask().isEmpty());
    const QPainterPath path = outline();
    p.fillPath(path, palette().window());
    p.setPen(QPen(palette().mid().color(), 1));
    p.drawPath(path);
}

} // namespace tess
