#include "ImportDialog.h"

#include "ui/Help.h"
#include "ui/MyDocument.h"
#include "ui/Panels.h"
#include "ui/QWCellTableViewArray.h"

#include <QAbstractTableModel>
#include <QButtonGroup>
#include <QCheckBox>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QScrollBar>
#include <QTableView>
#include <QVBoxLayout>

namespace tess {

namespace {

// The header columns as the dialog starts: the order of an export's fields, so that a file
// exported here imports back by ticking them; the last three feed nothing.
const QList<ImportField> kInitialFields = {ImportField::Name,    ImportField::URL,      ImportField::UserID1,
                                           ImportField::Password, ImportField::Notes,   ImportField::UserID2,
                                           ImportField::None,     ImportField::None,    ImportField::None};
// How many records between two showings of the import's progress.
constexpr qsizetype kProgressStep = 250;
constexpr int kColumnWidth = 104;

} // namespace

// The one-row header table: a tick box per position. The ticks belong to positions, not to
// the columns dragged over them.
class ImportDialog::HeaderModel : public QAbstractTableModel {
public:
    explicit HeaderModel(QObject *parent) : QAbstractTableModel(parent), fields(kInitialFields), ticked(kImportColumns, false) {}

    QHeaderView *header = nullptr;
    QList<ImportField> fields; // by column, wherever it stands
    QList<bool> ticked;        // importColumn: by position

    int position(int column) const { return header ? header->visualIndex(column) : column; }
    int rowCount(const QModelIndex &parent = {}) const override { return parent.isValid() ? 0 : 1; }
    int columnCount(const QModelIndex &parent = {}) const override { return parent.isValid() ? 0 : kImportColumns; }
    QVariant headerData(int section, Qt::Orientation o, int role) const override
    {
        if (o == Qt::Horizontal && role == Qt::DisplayRole)
            return importTitleForField(fields.value(section));
        return {};
    }
    QVariant data(const QModelIndex &index, int role) const override
    {
        if (role == Qt::CheckStateRole)
            return ticked.value(position(index.column())) ? Qt::Checked : Qt::Unchecked;
        return {};
    }
    Qt::ItemFlags flags(const QModelIndex &index) const override
    {
        const ImportField f = fields.value(index.column());
        // The name is always imported; a column without a field has nothing to import.
        if (f == ImportField::Name || f == ImportField::None)
            return Qt::ItemIsUserCheckable;
        return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable;
    }
    bool setData(const QModelIndex &index, const QVariant &value, int role) override
    {
        if (role != Qt::CheckStateRole || fields.value(index.column()) == ImportField::Name)
            return false;
        ticked[position(index.column())] = value.toInt() == Qt::Checked;
        Q_EMIT dataChanged(index, index);
        return true;
    }
    void refresh() { Q_EMIT dataChanged(index(0, 0), index(0, kImportColumns - 1)); }
};

// The parsed records, field i in column i.
class ImportDialog::RecordsModel : public QAbstractTableModel {
public:
    using QAbstractTableModel::QAbstractTableModel;
    QList<ImportRecord> records;

    void setRecords(QList<ImportRecord> r)
    {
        beginResetModel();
        records = std::move(r);
        endResetModel();
    }
    int rowCount(const QModelIndex &parent = {}) const override { return parent.isValid() ? 0 : int(records.size()); }
    int columnCount(const QModelIndex &parent = {}) const override { return parent.isValid() ? 0 : kImportColumns; }
    QVariant data(const QModelIndex &index, int role) const override
    {
        if (role == Qt::DisplayRole || role == Qt::ToolTipRole)
            return records.value(index.row()).value(index.column());
        return {};
    }
};

ImportDialog::ImportDialog(QWidget *parent)
    : QDialog(parent), m_header(new HeaderModel(this)), m_records(new RecordsModel(this))
{
    setWindowTitle(QStringLiteral("Import Password Data"));
    setModal(true);

    importPasswordDataNote = new QLabel(QStringLiteral(
        "Each line of the file is one record. Tick the columns to import, and drag a column's title over the "
        "column of the file that holds that field (or carry it there with Ctrl and the arrow keys): the tick "
        "goes to where it is dropped. The Name column is always imported."));
    importPasswordDataNote->setWordWrap(true);
    importPasswordDataErrorMsg = new QLabel(QStringLiteral(
        "These records were not imported: they have no name, or fewer fields than the columns ticked."));
    importPasswordDataErrorMsg->setWordWrap(true);
    importPasswordDataErrorMsg->setStyleSheet(QStringLiteral("color: #b00020"));
    importPasswordDataErrorMsg->setObjectName(QStringLiteral("importPasswordDataErrorMsg"));

    importPasswordDataRadioButtons = new QButtonGroup(this);
    auto *separators = new QHBoxLayout;
    separators->addWidget(new QLabel(QStringLiteral("Fields separated by:")));
    const QList<QPair<QString, int>> modes = {{QStringLiteral("&Tab"), SeparatorTab},
                                              {QStringLiteral("&Comma"), SeparatorComma},
                                              {QStringLiteral("S&emicolon"), SeparatorSemicolon}};
    for (const auto &[title, tag] : modes) {
        auto *b = new QRadioButton(title);
        importPasswordDataRadioButtons->addButton(b, tag);
        separators->addWidget(b);
    }
    separators->addSpacing(24);
    skipFirstLineSwitch = new QCheckBox(QStringLiteral("S&kip the first line"));
    standardQuotesSwitch = new QCheckBox(QStringLiteral("Standard &quotes"));
    standardQuotesSwitch->setToolTip(QStringLiteral("A doubled quote inside a quoted field is one quote, as in files "
                                                    "that browsers and other password managers export."));
    separators->addWidget(skipFirstLineSwitch);
    separators->addWidget(standardQuotesSwitch);
    separators->addStretch();

    importPasswordDataHeaderTable = new QTableView;
    importPasswordDataHeaderTable->setObjectName(QStringLiteral("importPasswordDataHeaderTable"));
    importPasswordDataHeaderTable->setModel(m_header);
    QHeaderView *header = importPasswordDataHeaderTable->horizontalHeader();
    m_header->header = header;
    header->setSectionsMovable(true);
    header->setDefaultSectionSize(kColumnWidth);
    header->setHighlightSections(false);
    importPasswordDataHeaderTable->verticalHeader()->hide();
    importPasswordDataHeaderTable->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    importPasswordDataHeaderTable->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    importPasswordDataHeaderTable->setSelectionMode(QAbstractItemView::SingleSelection);
    importPasswordDataHeaderTable->setFixedHeight(header->sizeHint().height()
                                                  + importPasswordDataHeaderTable->verticalHeader()->defaultSectionSize()
                                                  + 2 * importPasswordDataHeaderTable->frameWidth());

    importPasswordDataTable = new QTableView;
    importPasswordDataTable->setObjectName(QStringLiteral("importPasswordDataTable"));
    importPasswordDataTable->setModel(m_records);
    importPasswordDataTable->horizontalHeader()->hide();
    importPasswordDataTable->horizontalHeader()->setDefaultSectionSize(kColumnWidth);
    importPasswordDataTable->verticalHeader()->hide();
    importPasswordDataTable->setEditTriggers(QAbstractItemView::NoEditTriggers);
    // Only the import selects here, to show how far it has come.
    importPasswordDataTable->setSelectionMode(QAbstractItemView::NoSelection);
    importPasswordDataTable->setSelectionBehavior(QAbstractItemView::SelectRows);
    importPasswordDataTable->setWordWrap(false);

    importProgress = new QProgressBar;
    importProgress->hide();
    importPasswordDataOKButton = new QPushButton(QStringLiteral("Import"));
    importPasswordDataOKButton->setDefault(true);
    importPasswordDataCancelButton = new QPushButton(QStringLiteral("Cancel"));
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(helpButton(HelpAnchor::Import));
    buttons->addWidget(importProgress, 1);
    buttons->addStretch();
    buttons->addWidget(importPasswordDataCancelButton);
    buttons->addWidget(importPasswordDataOKButton);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(importPasswordDataNote);
    layout->addLayout(separators);
    layout->addSpacing(6);
    layout->addWidget(importPasswordDataHeaderTable);
    layout->setSpacing(4);
    layout->addWidget(importPasswordDataTable, 1);
    layout->addWidget(importPasswordDataErrorMsg);
    layout->addLayout(buttons);
    resize(kColumnWidth * kImportColumns + 40, 520);

    connect(importPasswordDataRadioButtons, &QButtonGroup::idClicked, this, &ImportDialog::importPasswordDataRadioButtonsChanged);
    connect(skipFirstLineSwitch, &QCheckBox::toggled, this, &ImportDialog::importPasswordDataRadioButtonsChanged);
    connect(standardQuotesSwitch, &QCheckBox::toggled, this, &ImportDialog::importPasswordDataRadioButtonsChanged);
    connect(header, &QHeaderView::sectionMoved, this, [this](int, int, int newPosition) {
        if (m_carriedTo < 0)
            columnMoved(newPosition);
        else
            m_carriedTo = newPosition; // ticked once dropped
    });
    importPasswordDataHeaderTable->installEventFilter(this);
    connect(header, &QHeaderView::sectionResized, this, &ImportDialog::syncColumnWidths);
    connect(m_header, &QAbstractItemModel::dataChanged, this, [this] {
        // A tick is not a selection that stays.
        QMetaObject::invokeMethod(importPasswordDataHeaderTable, [this] { importPasswordDataHeaderTable->clearSelection(); },
                                  Qt::QueuedConnection);
    });
    connect(importPasswordDataTable->horizontalScrollBar(), &QScrollBar::valueChanged,
            importPasswordDataHeaderTable->horizontalScrollBar(), &QScrollBar::setValue);
    connect(importPasswordDataOKButton, &QPushButton::clicked, this, [this] {
        // Import, then the records left over, if any, in the same window; OK closes the result.
        if (m_showingResult || !importAction) {
            done(1);
            return;
        }
        importAction();
        if (m_records->records.isEmpty())
            done(1);
        else
            showResult();
    });
    connect(importPasswordDataCancelButton, &QPushButton::clicked, this, [this] { done(0); });
}

ImportDialog::~ImportDialog() = default;

QFileDialog *ImportDialog::newOpenPanel(QWidget *window)
{
    auto *panel = new QFileDialog(window, QStringLiteral("Import Password Data"), QDir::homePath());
    panel->setOption(QFileDialog::DontUseNativeDialog);
    panel->setAcceptMode(QFileDialog::AcceptOpen);
    panel->setFileMode(QFileDialog::ExistingFile);
    panel->setNameFilters({QStringLiteral("Text files (*.txt *.csv *.ssv)"), QStringLiteral("All files (*)")});
    return panel;
}

void ImportDialog::importPasswordDataBegin(MyDocument *document)
{
    QFileDialog *panel = newOpenPanel(document);
    const bool chosen = panel->exec() == QDialog::Accepted && !panel->selectedFiles().isEmpty();
    const QString path = chosen ? panel->selectedFiles().constFirst() : QString();
    delete panel;
    if (!chosen)
        return;

    const QString name = QFileInfo(path).fileName();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        document->prompt(QStringLiteral("The file “%1” could not be read: %2").arg(name, file.errorString()), QStringLiteral("OK"));
        return;
    }
    QString text;
    if (!decodeImportFile(file.readAll(), &text)) {
        document->prompt(QStringLiteral("The file “%1” is not UTF-8 text, so nothing was imported. Save it as UTF-8 "
                                        "(Unicode) text and import it again.")
                             .arg(name),
                         QStringLiteral("OK"));
        return;
    }

    ImportDialog dialog(document);
    dialog.beginChoosing(text);
    dialog.importAction = [&dialog, document] {
        // The list is not read again from the file while the import adds to it.
        const bool watching = document->updateTimer.isActive();
        document->updateTimer.stop();
        EntryList entries = document->file().passwordArray();
        dialog.importInto(entries);
        document->file().passwordArray() = entries;
        if (watching)
            document->updateTimer.start();
        document->passwordTable->reloadData();
        // One save for the whole import, whether or not anything was imported.
        document->QWCellTableViewArrayChanged();
    };
    runPanel(&dialog, document);
}

void ImportDialog::beginChoosing(const QString &text)
{
    m_showingResult = false;
    importPasswordDataNote->show();
    importPasswordDataErrorMsg->hide();
    importPasswordDataOKButton->setText(QStringLiteral("Import"));
    importPasswordDataCancelButton->show();
    importPasswordDataHeaderTable->clearSelection();
    importPasswordDataTable->clearSelection();
    m_header->ticked = QList<bool>(kImportColumns, false);
    m_header->ticked[0] = true;
    m_header->refresh();
    passwordDataFileContents = text;
    importPasswordDataRadioButtons->button(SeparatorTab)->setChecked(true);
    importPasswordDataRadioButtonsChanged();
}

void ImportDialog::importPasswordDataRadioButtonsChanged()
{
    ImportParseOptions options;
    options.mode = importPasswordDataRadioButtons->checkedId();
    options.skipFirstLine = skipFirstLineSwitch->isChecked();
    options.standardQuotes = standardQuotesSwitch->isChecked();
    m_records->setRecords(parseImportRecords(passwordDataFileContents, options));
}

qsizetype ImportDialog::importInto(EntryList &list)
{
    QList<ImportRecord> work = m_records->records;
    importProgress->show();
    importProgress->setRange(0, int(work.size()));
    importProgress->setValue(0);
    importPasswordDataOKButton->setEnabled(false);
    importPasswordDataCancelButton->setEnabled(false);
    QItemSelectionModel *selection = importPasswordDataTable->selectionModel();
    const qsizetype made = importRecords(list, work, columns(), [&](qsizetype done, qsizetype total) {
        // Now and then, not per record: the row reached, scrolled into view, and the bar.
        if (done % kProgressStep != 0 && done != total)
            return;
        const QModelIndex at = m_records->index(int(done - 1), 0);
        selection->select(at, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
        importPasswordDataTable->scrollTo(at);
        importProgress->setValue(int(done));
        QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
    });
    selection->clear();
    m_records->setRecords(std::move(work));
    importProgress->hide();
    importPasswordDataOKButton->setEnabled(true);
    importPasswordDataCancelButton->setEnabled(true);
    return made;
}

void ImportDialog::showResult()
{
    m_showingResult = true;
    importPasswordDataNote->hide();
    importPasswordDataErrorMsg->show();
    importPasswordDataOKButton->setText(QStringLiteral("OK"));
    importPasswordDataCancelButton->hide();
}

ImportColumns ImportDialog::columns() const
{
    const QHeaderView *header = importPasswordDataHeaderTable->horizontalHeader();
    ImportColumns c;
    for (int p = 0; p < kImportColumns; ++p)
        c.fields.append(m_header->fields.value(header->logicalIndex(p)));
    c.ticked = m_header->ticked;
    return c;
}

const QList<ImportRecord> &ImportDialog::records() const
{
    return m_records->records;
}

QString ImportDialog::titleAt(int position) const
{
    return importTitleForField(columns().fields.value(position));
}

bool ImportDialog::setTicked(int position, bool on)
{
    const int column = importPasswordDataHeaderTable->horizontalHeader()->logicalIndex(position);
    const QModelIndex index = m_header->index(0, column);
    if (!(m_header->flags(index) & Qt::ItemIsEnabled))
        return false;
    return m_header->setData(index, on ? Qt::Checked : Qt::Unchecked, Qt::CheckStateRole);
}

void ImportDialog::moveColumn(int from, int to)
{
    importPasswordDataHeaderTable->horizontalHeader()->moveSection(from, to);
}

bool ImportDialog::eventFilter(QObject *watched, QEvent *event)
{
    // The keyboard's drag: Ctrl+Left and Ctrl+Right carry the current column's title, and
    // letting go of Ctrl drops it, which ticks where it lands, as a drop of the mouse does.
    if (watched != importPasswordDataHeaderTable)
        return QDialog::eventFilter(watched, event);
    QHeaderView *header = importPasswordDataHeaderTable->horizontalHeader();
    if (event->type() == QEvent::FocusIn && !importPasswordDataHeaderTable->currentIndex().isValid()) {
        // Reached by Tab: on the first tick box that can change. The table's own start, the
        // Name's box, cannot, and the arrow keys would never leave it.
        for (int p = 0; p < kImportColumns; ++p) {
            const QModelIndex at = m_header->index(0, header->logicalIndex(p));
            if (m_header->flags(at) & Qt::ItemIsEnabled) {
                importPasswordDataHeaderTable->setCurrentIndex(at);
                break;
            }
        }
    } else if (event->type() == QEvent::KeyPress) {
        auto *key = static_cast<QKeyEvent *>(event);
        const int step = key->key() == Qt::Key_Left ? -1 : key->key() == Qt::Key_Right ? 1 : 0;
        if (step != 0 && key->modifiers() == Qt::ControlModifier) {
            const int column = importPasswordDataHeaderTable->currentIndex().isValid() ? importPasswordDataHeaderTable->currentIndex().column()
                                                                                        : header->logicalIndex(0);
            const int from = header->visualIndex(column);
            const int to = from + step;
            if (to >= 0 && to < kImportColumns) {
                if (m_carriedTo < 0)
                    m_carriedFrom = from;
                m_carriedTo = from;
                header->moveSection(from, to);
                importPasswordDataHeaderTable->setCurrentIndex(m_header->index(0, column));
            }
            return true;
        }
    } else if ((event->type() == QEvent::KeyRelease && static_cast<QKeyEvent *>(event)->key() == Qt::Key_Control)
               || event->type() == QEvent::FocusOut) {
        // Put back where it was taken from, it was not moved.
        if (const int dropped = std::exchange(m_carriedTo, -1); dropped >= 0 && dropped != m_carriedFrom)
            columnMoved(dropped);
    }
    return QDialog::eventFilter(watched, event);
}

void ImportDialog::columnMoved(int newPosition)
{
    // Dropping a field's title over a column of the file selects that column for import.
    m_header->ticked[newPosition] = true;
    m_header->refresh();
    syncColumnWidths();
}

void ImportDialog::syncColumnWidths()
{
    const QHeaderView *header = importPasswordDataHeaderTable->horizontalHeader();
    for (int p = 0; p < kImportColumns; ++p)
        importPasswordDataTable->setColumnWidth(p, header->sectionSize(header->logicalIndex(p)));
}

} // namespace tess
