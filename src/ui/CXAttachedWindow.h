#pragma once
// A borderless window with an arrow, attached to points of another window: the callout in
// which the entry editor appears. Run modally, it ends with an integer result code.

#include <QDialog>
#include <QPainterPath>
#include <QPointer>

namespace tess {

class CXAttachedWindow : public QDialog {
    Q_OBJECT

public:
    // leftAnchor and rightAnchor are in the window's content coordinates; the callout sits
    // below the left anchor when it fits, otherwise above it, with its arrow on the anchor.
    CXAttachedWindow(QWidget *view, QWidget *window, QPoint leftAnchor, QPoint rightAnchor, int distance);

    int runModal() { return exec(); }
    void detach();
    bool arrowPointsUp() const { return m_arrowUp; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void place();
    QPainterPath outline() const;
    // Without a compositor the window's transparent corners would be black: cut them away.
    void updateMask();

    QPointer<QWidget> m_window;
    QPoint m_leftAnchor, m_rightAnchor;
    int m_distance;
    bool m_arrowUp = true;
    int m_arrowX = 40;
};

} // namespace tess
