#include "Panels.h"

#include "ui/Help.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScreen>
#include <QStyle>
#include <QVBoxLayout>

namespace tess {

QPoint panelPosition(const QRect &window, const QSize &panel, const QRect &available)
{
    // Centred over the window, then kept inside the available area of the window's screen
    // (left edge first when the panel is wider or taller than that area).
    const int x = window.x() + (window.width() - panel.width()) / 2;
    const int y = window.y() + (window.height() - panel.height()) / 2;
    return {std::max(available.left(), std::min(x, available.right() + 1 - panel.width())),
            std::max(available.top(), std::min(y, available.bottom() + 1 - panel.height()))};
}

QRect availableGeometryFor(const QWidget *window)
{
    const QRect frame = window ? window->frameGeometry() : QRect();
    const QScreen *screen = window ? QGuiApplication::screenAt(frame.center()) : nullptr;
    if (!screen && window)
        screen = window->screen();
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    return screen ? screen->availableGeometry() : QRect();
}

QPoint documentWindowPosition(const QSize &frame, const QRect &available, const QRect &previous)
{
    // The first window centred, each further one a step down and right of the one opened
    // before it; back to the top-left corner of the area once a step would leave it.
    constexpr int kStep = 28;
    QPoint p = previous.isNull() ? available.topLeft() + QPoint((available.width() - frame.width()) / 2,
                                                                (available.height() - frame.height()) / 2)
                                 : previous.topLeft() + QPoint(kStep, kStep);
    if (!previous.isNull() && (p.x() + frame.width() > available.right() + 1 || p.y() + frame.height() > available.bottom() + 1))
        p = available.topLeft();
    return {std::max(available.left(), std::min(p.x(), available.right() + 1 - frame.width())),
            std::max(available.top(), std::min(p.y(), available.bottom() + 1 - frame.height()))};
}

void placeDocumentWindow(QWidget *window, const QWidget *previous)
{
    // The window manager puts a window where it likes (partly off the screen, or on another
    // monitor than the window it came from); a position of our own also lets a panel be
    // placed over the window before the window manager has answered.
    const QRect available = availableGeometryFor(previous ? previous : window);
    if (available.isEmpty())
        return;
    // The title bar and borders are not known before the first showing: leave room for them.
    const QSize decoration(8, 32);
    window->ensurePolished();
    const QSize size = window->size().boundedTo(available.size() - decoration);
    window->resize(size);
    const QSize frame = size + decoration;
    window->move(documentWindowPosition(frame, available, previous ? previous->frameGeometry() : QRect()));
}

bool runPanel(QDialog *panel, QWidget *window)
{
    panel->adjustSize();
    if (window)
        panel->move(panelPosition(window->frameGeometry(), panel->size(), availableGeometryFor(window)));
    panel->raise();
    panel->activateWindow();
    const int code = panel->exec();
    panel->hide();
    return code == 1;
}

PasswordPanel::PasswordPanel(QWidget *parent) : QDialog(parent)
{
    setWindowTitle(QStringLiteral("Password"));
    framisIcon = new QLabel;
    framisIcon->setPixmap(style()->standardIcon(QStyle::SP_MessageBoxQuestion).pixmap(48));
    framisIcon->setAlignment(Qt::AlignTop);
    framisPrompt = new QLabel;
    framisPrompt->setWordWrap(true);
    framisPrompt->setFixedWidth(260);
    framisText = new QLineEdit;
    framisText->setEchoMode(QLineEdit::Password);
    framisText->setObjectName(QStringLiteral("framisText"));
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    connect(buttons, &QDialogButtonBox::accepted, this, [this] { done(1); });
    connect(buttons, &QDialogButtonBox::rejected, this, [this] { done(0); });
    auto *right = new QVBoxLayout;
    right->addWidget(framisPrompt);
    right->addWidget(framisText);
    right->addWidget(buttons);
    auto *layout = new QHBoxLayout(this);
    layout->addWidget(framisIcon);
    layout->addLayout(right);
}

void PasswordPanel::setPrompt(const QString &prompt)
{
    framisPrompt->setText(prompt);
    framisText->clear();
    framisText->setFocus();
}

QString PasswordPanel::password() const
{
    return framisText->text();
}

PromptPanel::PromptPanel(QWidget *parent) : QDialog(parent)
{
    setWindowTitle(QStringLiteral("Tessaline"));
    promptMessage = new QLabel;
    promptMessage->setWordWrap(true);
    promptMessage->setMinimumWidth(280);
    promptDefaultButton = new QPushButton;
    promptDefaultButton->setDefault(true);
    promptOtherButton = new QPushButton;
    connect(promptDefaultButton, &QPushButton::clicked, this, [this] { done(1); });
    connect(promptOtherButton, &QPushButton::clicked, this, [this] { done(0); });
    auto *buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(promptOtherButton);
    buttons->addWidget(promptDefaultButton);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(promptMessage);
    layout->addLayout(buttons);
}

void PromptPanel::setUp(const QString &message, const QString &defaultChoice, const QString &otherChoice)
{
    promptOtherButton->setVisible(!otherChoice.isEmpty());
    promptOtherButton->setText(otherChoice);
    promptMessage->setText(message);
    promptDefaultButton->setText(defaultChoice);
}

ChangePasswordPanel::ChangePasswordPanel(QWidget *parent) : QDialog(parent)
{
    setWindowTitle(QStringLiteral("Change Password"));
    oldFramis = new QLineEdit;
    newFramis = new QLineEdit;
    newFramis2 = new QLineEdit;
    for (QLineEdit *e : {oldFramis, newFramis, newFramis2})
        e->setEchoMode(QLineEdit::Password);
    oldFramis->hide(); // the current password was asked for already
    newFramis->setObjectName(QStringLiteral("newFramis"));
    newFramis2->setObjectName(QStringLiteral("newFramis2"));
    auto *form = new QFormLayout;
    form->addRow(QStringLiteral("New password:"), newFramis);
    form->addRow(QStringLiteral("Again:"), newFramis2);
    framis2OKButton = new QPushButton(QStringLiteral("OK"));
    framis2OKButton->setDefault(true);
    auto *cancel = new QPushButton(QStringLiteral("Cancel"));
    connect(framis2OKButton, &QPushButton::clicked, this, [this] { done(1); });
    connect(cancel, &QPushButton::clicked, this, [this] { done(0); });
    // OK only while the two new fields hold the same text (two empty fields included).
    auto update = [this] { framis2OKButton->setEnabled(newFramis->text() == newFramis2->text()); };
    connect(newFramis, &QLineEdit::textChanged, this, update);
    connect(newFramis2, &QLineEdit::textChanged, this, update);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(helpButton(HelpAnchor::ChangePassword));
    buttons->addStretch();
    buttons->addWidget(cancel);
    buttons->addWidget(framis2OKButton);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel(QStringLiteral("Enter the new password for this file twice:")));
    layout->addLayout(form);
    layout->addLayout(buttons);
}

void ChangePasswordPanel::clear()
{
    oldFramis->clear();
    newFramis->clear();
    newFramis2->clear();
    framis2OKButton->setEnabled(false);
    newFramis->setFocus();
}

} // namespace tess
