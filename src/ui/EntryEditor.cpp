#include "EntryEditor.h"

#include "core/login/LoginOptions.h"
#include "ui/Help.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace tess {

using namespace loginoptions;

const QString EntryEditor::kShowIDPassword = QStringLiteral("Show ID/Password");
const QString EntryEditor::kHideIDPassword = QStringLiteral("Hide ID/Password");

namespace {

constexpr int kTabCounts = 9;

QComboBox *tabCountPopup()
{
    auto *popup = new QComboBox;
    for (int i = 1; i <= kTabCounts; ++i)
        popup->addItem(i == 1 ? QStringLiteral("1 Tab") : QStringLiteral("%1 Tabs").arg(i));
    return popup;
}

// A plain field and its masked twin in one place; one of the two shows.
QWidget *twin(QLineEdit *plain, QLineEdit *secure, QWidget *extra = nullptr)
{
    auto *box = new QWidget;
    auto *row = new QHBoxLayout(box);
    row->setContentsMargins(0, 0, 0, 0);
    row->addWidget(plain);
    row->addWidget(secure);
    if (extra)
        row->addWidget(extra);
    return box;
}

} // namespace

EntryEditor::EntryEditor(QWidget *parent) : QWidget(parent)
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(buildFields());
    layout->addWidget(buildOptions());
    auto *notes = new QFormLayout;
    notesText = new QPlainTextEdit;
    notesText->setObjectName(QStringLiteral("notesText"));
    notesText->setTabChangesFocus(true);
    notesText->setMinimumHeight(90);
    notes->addRow(QStringLiteral("N&otes:"), notesText);
    layout->addLayout(notes);

    okButton = new QPushButton(QStringLiteral("Save"));
    okButton->setObjectName(QStringLiteral("okButton"));
    cancelButton = new QPushButton(QStringLiteral("Cancel"));
    cancelButton->setObjectName(QStringLiteral("cancelButton"));
    // Which button Return presses is decided with the save button's state, never by where
    // the focus has been: a focused button is pressed with Space.
    for (QPushButton *b : {okButton, cancelButton})
        b->setAutoDefault(false);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(helpButton(HelpAnchor::Entries));
    buttons->addStretch();
    buttons->addWidget(cancelButton);
    buttons->addWidget(okButton);
    layout->addLayout(buttons);

    for (QLineEdit *e : {nameText, urlText, userID1Text, userID2Text, passwordText})
        connect(e, &QLineEdit::textChanged, this, [this, e] { fieldChanged(e); });
    // The masked twins feed their plain fields, which store.
    const QList<QPair<QLineEdit *, QLineEdit *>> twins = {{secureUserID, userID1Text}, {secureUserID2, userID2Text}, {securePassword, passwordText}};
    for (const auto &[secure, plain] : twins)
        connect(secure, &QLineEdit::textChanged, plain, [plain = plain](const QString &t) {
            if (plain->text() != t)
                plain->setText(t);
        });
    connect(notesText, &QPlainTextEdit::textChanged, this, [this] { fieldChanged(notesText); });
    connect(okButton, &QPushButton::clicked, this, &EntryEditor::saveChosen);
    connect(cancelButton, &QPushButton::clicked, this, &EntryEditor::cancelChosen);
}

QWidget *EntryEditor::buildFields()
{
    nameText = new QLineEdit;
    urlText = new QLineEdit;
    userID1Text = new QLineEdit;
    userID2Text = new QLineEdit;
    passwordText = new QLineEdit;
    secureUserID = new QLineEdit;
    secureUserID2 = new QLineEdit;
    securePassword = new QLineEdit;
    for (QLineEdit *s : {secureUserID, secureUserID2, securePassword}) {
        s->setEchoMode(QLineEdit::Password);
        s->hide();
    }
    showHideUserIDPasswordButton = new QPushButton(kHideIDPassword);
    showHideUserIDPasswordButton->setAutoDefault(false);
    connect(showHideUserIDPasswordButton, &QPushButton::clicked, this, &EntryEditor::showHideUserIDPassword);
    const QList<QPair<QWidget *, const char *>> named = {
        {nameText, "nameText"},         {urlText, "urlText"},           {userID1Text, "userID1Text"},       {userID2Text, "userID2Text"},
        {passwordText, "passwordText"}, {secureUserID, "secureUserID"}, {secureUserID2, "secureUserID2"}, {securePassword, "securePassword"}};
    for (const auto &[w, n] : named)
        w->setObjectName(QLatin1String(n));
    nameExistsWarning = new QLabel(QStringLiteral("An entry needs a name that no other entry has."));
    nameExistsWarning->setStyleSheet(QStringLiteral("color: #b00020"));
    nameExistsWarning->hide();

    auto *box = new QWidget;
    auto *form = new QFormLayout(box);
    form->setContentsMargins(0, 0, 0, 0);
    form->addRow(QStringLiteral("&Name:"), nameText);
    form->addRow(QString(), nameExistsWarning);
    form->addRow(QStringLiteral("&Website:"), urlText);
    form->addRow(QStringLiteral("&User ID:"), twin(userID1Text, secureUserID));
    form->addRow(QStringLiteral("User ID &2:"), twin(userID2Text, secureUserID2));
    QWidget *passwordRow = twin(passwordText, securePassword, showHideUserIDPasswordButton);
    generateButton = new QPushButton(QStringLiteral("&Generate…"));
    generateButton->setObjectName(QStringLiteral("generateButton"));
    generateButton->setAutoDefault(false);
    static_cast<QHBoxLayout *>(passwordRow->layout())->addWidget(generateButton);
    form->addRow(QStringLiteral("&Password:"), passwordRow);
    return box;
}

QWidget *EntryEditor::buildOptions()
{
    userIDOptions = new QComboBox;
    userIDOptions->addItems({QStringLiteral("Open the website only"), QStringLiteral("Open and log in")});
    userIDTabSwitch = new QCheckBox(QStringLiteral("Tabs before the user ID:"));
    userIDTabs = tabCountPopup();
    userIDReturnSwitch = new QCheckBox(QStringLiteral("Return after the user ID"));
    passwordOptions = new QComboBox;
    passwordOptions->addItems({QStringLiteral("Password on the same page"), QStringLiteral("Password on the next page"),
                               QStringLiteral("User ID only, no password"), QStringLiteral("Show the password, do not type it")});
    passwordTabSwitch = new QCheckBox(QStringLiteral("Tabs before the password:"));
    passwordTabs = tabCountPopup();
    passwordReturnSwitch = new QCheckBox(QStringLiteral("Return after the password"));
    browserPopup = new QComboBox;
    setBrowsers({});
    const QList<QPair<QWidget *, const char *>> named = {
        {userIDOptions, "userIDOptions"},     {userIDTabSwitch, "userIDTabSwitch"},     {userIDTabs, "userIDTabs"},
        {userIDReturnSwitch, "userIDReturnSwitch"}, {passwordOptions, "passwordOptions"}, {passwordTabSwitch, "passwordTabSwitch"},
        {passwordTabs, "passwordTabs"},       {passwordReturnSwitch, "passwordReturnSwitch"}, {browserPopup, "browserPopup"}};
    for (const auto &[w, n] : named)
        w->setObjectName(QLatin1String(n));

    auto *box = new QWidget;
    auto *form = new QFormLayout(box);
    form->setContentsMargins(0, 0, 0, 0);
    auto row = [](std::initializer_list<QWidget *> widgets) {
        auto *w = new QWidget;
        auto *l = new QHBoxLayout(w);
        l->setContentsMargins(0, 0, 0, 0);
        for (QWidget *x : widgets)
            l->addWidget(x);
        l->addStretch();
        return w;
    };
    form->addRow(QStringLiteral("&Login:"), userIDOptions);
    form->addRow(QString(), row({userIDTabSwitch, userIDTabs}));
    form->addRow(QString(), userIDReturnSwitch);
    form->addRow(QStringLiteral("Pass&word:"), passwordOptions);
    form->addRow(QString(), row({passwordTabSwitch, passwordTabs}));
    form->addRow(QString(), passwordReturnSwitch);
    form->addRow(QStringLiteral("&Browser:"), browserPopup);

    connect(userIDOptions, &QComboBox::activated, this, [this](int index) {
        displayUserIDOption(index);
        userIDOptionChanged(m_editedEntry, index);
        optionChanged();
    });
    auto userIDTab = [this] {
        userIDTabs->setEnabled(userIDTabSwitch->isChecked());
        if (!userIDTabSwitch->isChecked())
            userIDTabs->setCurrentIndex(0);
        tabChanged(m_editedEntry, true, userIDTabSwitch->isChecked(), userIDTabs->currentIndex());
        optionChanged();
    };
    connect(userIDTabSwitch, &QCheckBox::clicked, this, userIDTab);
    connect(userIDTabs, &QComboBox::activated, this, userIDTab);
    auto passwordTab = [this] {
        passwordTabs->setEnabled(passwordTabSwitch->isChecked());
        if (!passwordTabSwitch->isChecked())
            passwordTabs->setCurrentIndex(0);
        tabChanged(m_editedEntry, false, passwordTabSwitch->isChecked(), passwordTabs->currentIndex());
        optionChanged();
    };
    connect(passwordTabSwitch, &QCheckBox::clicked, this, passwordTab);
    connect(passwordTabs, &QComboBox::activated, this, passwordTab);
    connect(userIDReturnSwitch, &QCheckBox::clicked, this, [this](bool checked) {
        userIDReturnChanged(m_editedEntry, checked);
        optionChanged();
    });
    connect(passwordReturnSwitch, &QCheckBox::clicked, this, [this](bool checked) {
        passwordReturnChanged(m_editedEntry, checked);
        optionChanged();
    });
    connect(passwordOptions, &QComboBox::activated, this, [this](int index) {
        showPasswordOption(passwordOptionChanged(m_editedEntry, index));
        optionChanged();
    });
    connect(browserPopup, &QComboBox::activated, this, [this](int index) {
        browserChanged(m_editedEntry, browserPopup->itemText(index), browserPopup->itemData(index).toString());
        optionChanged();
    });
    return box;
}

void EntryEditor::setBrowsers(const QList<Browser> &browsers)
{
    browserPopup->clear();
    browserPopup->addItem(kDefaultBrowser);
    browserPopup->addItem(kBuiltInBrowser);
    for (const Browser &b : browsers)
        browserPopup->addItem(b.title, b.id);
}

void EntryEditor::load(const Entry &entry, const QStringList &otherNames)
{
    m_originalEntry = entry;
    m_editedEntry = m_originalEntry;
    m_entryNames = otherNames;
    nameExistsWarning->hide();
    m_filling = true;
    convertOlderOptions(m_editedEntry);
    nameText->setText(m_editedEntry.value(EntryKey::Path).toString());
    urlText->setText(m_editedEntry.value(EntryKey::URL).toString());
    secureUserID->setText(m_editedEntry.value(EntryKey::UserID).toString());
    secureUserID2->setText(m_editedEntry.value(EntryKey::UserID2).toString());
    securePassword->setText(m_editedEntry.value(EntryKey::Password).toString());
    userID1Text->setText(secureUserID->text());
    userID2Text->setText(secureUserID2->text());
    passwordText->setText(securePassword->text());
    notesText->setPlainText(m_editedEntry.value(EntryKey::Notes).toString());
    // Empty fields are shown plain, so that a new entry can be typed in.
    if (userID1Text->text().isEmpty() && userID2Text->text().isEmpty() && passwordText->text().isEmpty())
        hideBullets();
    else
        showBullets();

    const int userIDOption = m_editedEntry.value(EntryKey::NewUserIDOptions).toInt();
    userIDOptions->setCurrentIndex(userIDOption);
    userIDTabSwitch->setChecked(m_editedEntry.value(EntryKey::UserIDTabSwitch).toBool());
    userIDTabs->setEnabled(userIDTabSwitch->isChecked());
    userIDTabs->setCurrentIndex(m_editedEntry.value(EntryKey::UserIDTabCount).toInt());
    userIDReturnSwitch->setChecked(m_editedEntry.value(EntryKey::UserIDReturnSwitch).toBool());
    displayUserIDOption(userIDOption);

    const int passwordOption = m_editedEntry.value(EntryKey::PasswordOptions).toInt();
    passwordOptions->setCurrentIndex(passwordOption);
    passwordTabSwitch->setChecked(m_editedEntry.value(EntryKey::PasswordTabSwitch).toBool());
    passwordTabs->setEnabled(passwordTabSwitch->isChecked());
    passwordTabs->setCurrentIndex(m_editedEntry.value(EntryKey::PasswordTabCount).toInt());
    passwordReturnSwitch->setChecked(m_editedEntry.value(EntryKey::PasswordEnter).toBool());
    showPasswordOption(loginoptions::displayPasswordOption(m_editedEntry, passwordOption));
    selectBrowser();
    m_filling = false;
    // Showing the options enabled some of them; a read-only file keeps them all off.
    if (m_uiDisabled)
        disableUI();
}

void EntryEditor::selectBrowser()
{
    int index = 0;
    if (m_editedEntry.value(EntryKey::UseDVBrowser).toBool()) {
        index = 1;
    } else if (m_editedEntry.contains(EntryKey::Browser)) {
        // A browser no longer installed shows as the default one; the entry keeps its choice.
        index = std::max(0, browserPopup->findText(m_editedEntry.value(EntryKey::Browser).toString(), Qt::MatchExactly));
    }
    browserPopup->setCurrentIndex(index);
}

void EntryEditor::displayUserIDOption(int option)
{
    const UserIDOptionDisplay d = loginoptions::displayUserIDOption(option, userIDTabSwitch->isChecked());
    userIDTabSwitch->setEnabled(d.tabSwitchEnabled);
    userIDTabs->setEnabled(d.tabsEnabled);
    if (d.tabSwitchChecked)
        userIDTabSwitch->setChecked(*d.tabSwitchChecked);
    if (d.tabsIndex)
        userIDTabs->setCurrentIndex(*d.tabsIndex);
}

void EntryEditor::showPasswordOption(const PasswordOptionDisplay &d)
{
    passwordTabSwitch->setEnabled(d.passwordTabSwitchEnabled);
    passwordTabs->setEnabled(d.passwordTabsEnabled);
    passwordReturnSwitch->setEnabled(d.passwordReturnSwitchEnabled);
    userIDReturnSwitch->setEnabled(d.userIDReturnSwitchEnabled);
    if (d.passwordTabSwitchChecked)
        passwordTabSwitch->setChecked(*d.passwordTabSwitchChecked);
    if (d.passwordTabsIndex)
        passwordTabs->setCurrentIndex(*d.passwordTabsIndex);
    if (d.passwordReturnSwitchChecked)
        passwordReturnSwitch->setChecked(*d.passwordReturnSwitchChecked);
    if (d.userIDReturnSwitchChecked)
        userIDReturnSwitch->setChecked(*d.userIDReturnSwitchChecked);
}

void EntryEditor::optionChanged()
{
    if (!m_filling)
        Q_EMIT edited();
}

void EntryEditor::fieldChanged(QWidget *field)
{
    if (m_filling)
        return;
    if (field == nameText) {
        m_editedEntry.insert(EntryKey::Path, nameText->text());
    } else if (field == notesText) {
        m_editedEntry.insert(EntryKey::Notes, notesText->toPlainText());
    } else if (field == urlText) {
        if (!storeField(m_editedEntry, EntryKey::URL, urlText->text()))
            return;
    } else {
        const QList<std::tuple<QLineEdit *, QLineEdit *, const QString &>> twins = {
            {userID1Text, secureUserID, EntryKey::UserID}, {userID2Text, secureUserID2, EntryKey::UserID2}, {passwordText, securePassword, EntryKey::Password}};
        for (const auto &[plain, secure, key] : twins) {
            if (field != plain)
                continue;
            if (secure->text() != plain->text())
                secure->setText(plain->text());
            if (plain == passwordText)
                Q_EMIT passwordEdited();
            if (!storeField(m_editedEntry, key, plain->text()))
                return;
        }
    }
    Q_EMIT edited();
}

void EntryEditor::setEnabledForCalloutSaveChanges(bool writable)
{
    const QString name = nameText->text();
    const bool valid = !name.isEmpty() && !m_entryNames.contains(name);
    nameExistsWarning->setVisible(!valid);
    const bool changed = m_editedEntry != m_originalEntry;
    okButton->setEnabled(writable && valid && changed);
    // Return saves whenever Save can; with nothing to lose it closes; otherwise (a change that
    // cannot be saved yet) it does nothing, and only Cancel or Escape throws the change away.
    okButton->setDefault(okButton->isEnabled());
    cancelButton->setDefault(!okButton->isEnabled() && !changed);
}

void EntryEditor::keyPressEvent(QKeyEvent *event)
{
    if (event->key() != Qt::Key_Return && event->key() != Qt::Key_Enter) {
        QWidget::keyPressEvent(event);
        return;
    }
    // Return reaches here from the one-line fields, the pop-ups and the switches (the notes
    // take it as a new line): it does what the highlighted button does. On a focused button
    // it presses that button.
    event->accept();
    if (auto *button = qobject_cast<QPushButton *>(focusWidget()); button && button->isEnabled())
        button->click();
    else if (okButton->isDefault() && okButton->isEnabled())
        okButton->click();
    else if (cancelButton->isDefault())
        cancelButton->click();
}

void EntryEditor::showBullets()
{
    setMasked(true);
}

void EntryEditor::hideBullets()
{
    setMasked(false);
}

void EntryEditor::setMasked(bool masked)
{
    showHideUserIDPasswordButton->setText(masked ? kShowIDPassword : kHideIDPassword);
    for (QLineEdit *plain : {userID1Text, userID2Text, passwordText})
        plain->setVisible(!masked);
    for (QLineEdit *secure : {secureUserID, secureUserID2, securePassword})
        secure->setVisible(masked);
}

void EntryEditor::showHideUserIDPassword()
{
    QWidget *focused = focusWidget();
    const QList<QPair<QLineEdit *, QLineEdit *>> twins = {{secureUserID, userID1Text}, {secureUserID2, userID2Text}, {securePassword, passwordText}};
    if (showHideUserIDPasswordButton->text().startsWith(u"Hide"))
        showBullets();
    else
        hideBullets();
    // The focus stays on the same value, in whichever of its twins now shows.
    for (const auto &[secure, plain] : twins) {
        if (focused == secure && !secure->isVisible())
            plain->setFocus();
        else if (focused == plain && !plain->isVisible())
            secure->setFocus();
    }
}

void EntryEditor::disableUI()
{
    m_uiDisabled = true;
    for (QLineEdit *e : {urlText, userID1Text, userID2Text, secureUserID, secureUserID2}) {
        e->setReadOnly(true);
        e->setFocusPolicy(Qt::NoFocus);
    }
    passwordText->setReadOnly(true);
    securePassword->setReadOnly(true);
    generateButton->setEnabled(false);
    for (QWidget *w : std::initializer_list<QWidget *>{userIDOptions, passwordOptions, passwordReturnSwitch, passwordTabSwitch, passwordTabs,
                                                       userIDReturnSwitch, userIDTabSwitch, userIDTabs})
        w->setEnabled(false);
}

} // namespace tess
