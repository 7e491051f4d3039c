#pragma once
// The password generator's callout, attached to the entry editor's password field: a length,
// whether special characters are wanted, OK and Cancel. On OK the entry gets a new password,
// shown unmasked, and the old one is kept in its notes.

#include <QDateTime>
#include <QWidget>

class QCheckBox;
class QComboBox;
class QPushButton;

namespace tess {

class EntryEditor;

class GeneratorCallout : public QWidget {
    Q_OBJECT

public:
    explicit GeneratorCallout(QWidget *parent = nullptr);

    // generatePassword: — runs the callout over the editor's password field; answers its code.
    static int generatePassword(EntryEditor *editor);
    // actuallyGeneratePassword: a new password from the entry's stored settings, the old one
    // kept in the notes with the time `now`.
    static void actuallyGeneratePassword(EntryEditor *editor, const QDateTime &now = QDateTime::currentDateTime());

    // The pop-up's item for a length (the nearest offered one when it is not offered).
    int indexForLength(qint64 length) const;

    QComboBox *passwordLengthPopup;
    QCheckBox *includeSpecialsSwitch;
    QPushButton *okButton;
    QPushButton *cancelButton;
};

} // namespace tess
