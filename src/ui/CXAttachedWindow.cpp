#include "CXAttachedWindow.h"

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
}

void CXAttachedWindow::place()
{
    if (!m_window)
        return;
    adjustSize();
    const QPoint anchor = m_window->mapToGlobal(m_leftAnchor);
    const QRect screen = (m_window->screen() ? m_window->screen() : QGuiApplication::primaryScreen())->availableGeometry();
    const int w = std::max(width(), std::min(m_rightAnchor.x() - m_leftAnchor.x(), 560));
    resize(w, height());
    m_arrowUp = anchor.y() + m_distance + height() <= screen.bottom();
    QLayout *l = layout();
    l->setContentsMargins(12, 12 + (m_arrowUp ? kArrowHeight : 0), 12, 12 + (m_arrowUp ? 0 : kArrowHeight));
    int x = std::clamp(anchor.x() - 28, screen.left(), std::max(screen.left(), screen.right() - w));
    const int y = m_arrowUp ? anchor.y() + m_distance : anchor.y() - m_distance - height();
    m_arrowX = std::clamp(anchor.x() - x + 12, kRadius + kArrowHalfWidth, w - kRadius - kArrowHalfWidth);
    move(x, y);
}

void CXAttachedWindow::showEvent(QShowEvent *event)
{
    place();
    QDialog::showEvent(event);
}

void CXAttachedWindow::detach()
{
    hide();
    m_window = nullptr;
}

void CXAttachedWindow::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
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
    path = path.united(arrow);
    p.fillPath(path, palette().window());
    p.setPen(QPen(palette().mid().color(), 1));
    p.drawPath(path);
}

} // namespace tess
