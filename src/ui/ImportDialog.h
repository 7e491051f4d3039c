#pragma once
// The import of password data from a text file: the choice of file, the dialog that shows the
// parsed records under a header table of tickable, draggable columns, the import itself with
// its progress, and the records left over.

#include "core/exchange/Import.h"

#include <QDialog>

#include <functional>

class QButtonGroup;
class QCheckBox;
class QFileDialog;
class QLabel;
class QProgressBar;
class QPushButton;
class QTableView;

namespace tess {

class MyDocument;

class ImportDialog : public QDialog {
    Q_OBJECT

public:
    explicit ImportDialog(QWidget *parent = nullptr);
    ~ImportDialog() override;

    // importPasswordDataBegin: the whole import into the document, from the open panel to the
    // records left over. The document saves once, at the end.
    static void importPasswordDataBegin(MyDocument *document);
    // The open panel, set up but not yet shown.
    static QFileDialog *newOpenPanel(QWidget *window);

    // The choosing state over the file's text: only the first column ticked, tab separator.
    void beginChoosing(const QString &text);
    // importPasswordDataRadioButtonsChanged: — parses the file again with the chosen separator
    // and options.
    void importPasswordDataRadioButtonsChanged();
    // Imports the records into the list, showing the progress; the records that were not
    // imported stay. Answers the number of entries made.
    qsizetype importInto(EntryList &list);
    // The result state: the records left over, the error message and "OK" alone.
    void showResult();
    // What the Import button does before the result state: the import into the document.
    std::function<void()> importAction;

    // The header table's columns by position: their fields and ticks.
    ImportColumns columns() const;
    const QList<ImportRecord> &records() const;
    // The title of the header column at a position.
    QString titleAt(int position) const;
    // As the user ticks a box, or drags a header column to another position.
    bool setTicked(int position, bool on);
    void moveColumn(int from, int to);

    QTableView *importPasswordDataHeaderTable;
    QTableView *importPasswordDataTable;
    QButtonGroup *importPasswordDataRadioButtons;
    QCheckBox *skipFirstLineSwitch;
    QCheckBox *standardQuotesSwitch;
    QPushButton *importPasswordDataOKButton;
    QPushButton *importPasswordDataCancelButton;
    QLabel *importPasswordDataNote;
    QLabel *importPasswordDataErrorMsg;
    QProgressBar *importProgress;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    class HeaderModel;
    class RecordsModel;
    void columnMoved(int newPosition);
    void syncColumnWidths();

    HeaderModel *m_header;
    RecordsModel *m_records;
    QString passwordDataFileContents;
    bool m_showingResult = false;
    // A title carried by Ctrl+arrow keys: where it stands until Ctrl is let go, or -1.
    int m_carriedTo = -1;
    int m_carriedFrom = -1;
};

} // namespace tess
