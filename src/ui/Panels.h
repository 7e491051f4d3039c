#pragma once
// The document's modal panels: the password panel, the general prompt, the delete
// confirmation and the password-change panel, and their placement over the window.

#include <QDialog>

class QLabel;
class QLineEdit;
class QPushButton;

namespace tess {

// runPanel: centre the panel over the window, keep it inside the available area of the
// window's screen, run it modally; YES when it ended with code 1.
bool runPanel(QDialog *panel, QWidget *window);
// The placement alone, for tests.
QPoint panelPosition(const QRect &window, const QSize &panel, const QRect &available);
// The available area (without panels and docks) of the screen the window is on.
QRect availableGeometryFor(const QWidget *window);

// A new document window goes on the screen of the window opened before it (or the primary
// screen), cascaded from that window and wholly inside the screen's available area.
void placeDocumentWindow(QWidget *window, const QWidget *previous);
// The placement alone, for tests: the frame's top-left corner.
QPoint documentWindowPosition(const QSize &frame, const QRect &available, const QRect &previous);

class PasswordPanel : public QDialog {
    Q_OBJECT
public:
    explicit PasswordPanel(QWidget *parent);
    void setPrompt(const QString &prompt);
    QString password() const;
    QLabel *framisPrompt;
    QLineEdit *framisText;
    QLabel *framisIcon;
};

class PromptPanel : public QDialog {
    Q_OBJECT
public:
    explicit PromptPanel(QWidget *parent);
    // prompt:defaultChoice:otherChoice: — an empty otherChoice hides that button.
    void setUp(const QString &message, const QString &defaultChoice, const QString &otherChoice);
    QLabel *promptMessage;
    QPushButton *promptDefaultButton;
    QPushButton *promptOtherButton;
};

class ChangePasswordPanel : public QDialog {
    Q_OBJECT
public:
    explicit ChangePasswordPanel(QWidget *parent);
    void clear();
    QLineEdit *oldFramis;
    QLineEdit *newFramis;
    QLineEdit *newFramis2;
    QPushButton *framis2OKButton;
};

} // namespace tess
