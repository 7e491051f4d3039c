#include "QWCellTableViewArray.h"

#include <QAbstractButton>
#include <QAbstractTableModel>
#include <QFileIconProvider>
#include <QFileInfo>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QMimeData>
#include <QTimer>

#include <utility>

namespace tess {

const QString QWCellTableViewArray::kEntryExists = QStringLiteral("Error: Entry already exists.");
const QString QWCellTableViewArray::kEntryExistsIgnoringCase =
    QStringLiteral("Error: Entry already exists (case insensitive).");

class QWCellTableViewArrayModel : public QAbstractTableModel {
public:
    explicit QWCellTableViewArrayModel(QWCellTableViewArray *table) : QAbstractTableModel(table), m_table(table) {}

    void reset()
    {
        beginResetModel();
        endResetModel();
    }

    int rowCount(const QModelIndex &parent = {}) const override
    {
        return parent.isValid() || !m_table->m_array ? 0 : int(m_table->m_array->size());
    }
    int columnCount(const QModelIndex &parent = {}) const override
    {
        return parent.isValid() ? 0 : int(m_table->m_columns.size());
    }

    QVariant headerData(int section, Qt::Orientation orientation, int role) const override
    {
        if (orientation != Qt::Horizontal || section >= m_table->m_columns.size())
            return {};
        if (role == Qt::DisplayRole)
            return m_table->m_columns[section].second;
        if (role == Qt::AccessibleTextRole && m_table->m_accessibleNames.contains(section))
            return m_table->m_accessibleNames.value(section);
        return {};
    }

    QVariant cellValue(int row, int column) const
    {
        const QVariant &element = m_table->m_array->at(row);
        if (!m_table->m_hasKeys)
            return element;
        return element.toMap().value(m_table->keyForColumn(column));
    }

    QVariant data(const QModelIndex &index, int role) const override
    {
        if (!index.isValid() || !m_table->m_array || index.row() >= m_table->m_array->size())
            return {};
        const QString key = m_table->keyForColumn(index.column());
        const auto &d = m_table->m_delegate;
        switch (role) {
        case Qt::DisplayRole:
        case Qt::EditRole: {
            if (key == u"appIcon")
                return {};
            const QVariant v = cellValue(index.row(), index.column());
            if (key == u"appPath")
                return QFileInfo(v.toString()).completeBaseName();
            return v;
        }
        case Qt::DecorationRole: {
            QWCellTableViewArray::CellDisplay cell;
            if (d.willDisplayCell)
                d.willDisplayCell(m_table, cell, index.column(), index.row());
            else if (key == u"appIcon")
                cell.icon = QFileIconProvider().icon(QFileInfo(m_table->m_array->at(index.row()).toMap().value("appPath").toString()));
            return cell.icon.isNull() ? QVariant() : QVariant(cell.icon);
        }
        case Qt::ToolTipRole: {
            const QString tip = d.toolTipForCell ? d.toolTipForCell(m_table, index.column(), index.row()) : QString();
            // Tool tips whose first line looks like markup are shown as rich text: a user ID
            // or note such as "<b>x" must show as typed.
            return tip.isEmpty() ? QVariant()
                                 : QVariant(QStringLiteral("<p style=\"white-space:pre-wrap\">") + tip.toHtmlEscaped() + QStringLiteral("</p>"));
        }
        case Qt::AccessibleTextRole:
            if (m_table->m_accessibleNames.contains(index.column()))
                return m_table->m_accessibleNames.value(index.column());
            return data(index, Qt::DisplayRole);
        default:
            return {};
        }
    }

    Qt::ItemFlags flags(const QModelIndex &index) const override
    {
        // A cell the display hook disables (a button with nothing to do) stays an enabled
        // item: the view's arrow keys and clicks skip disabled items, and its row must still
        // be reached like any other. Its action asks cellEnabled().
        Qt::ItemFlags f = QAbstractTableModel::flags(index) | Qt::ItemIsDragEnabled | Qt::ItemIsDropEnabled;
        if (!index.isValid())
            return Qt::ItemIsDropEnabled;
        if (m_table->m_columns.value(index.column()).first != u"NOCHANGE")
            f |= Qt::ItemIsEditable;
        return f;
    }

    bool setData(const QModelIndex &index, const QVariant &value, int role) override
    {
        if (role != Qt::EditRole || !index.isValid())
            return false;
        if (m_table->m_committingEditor)
            m_table->m_pendingEdits.append({value, index.column(), index.row()});
        else
            m_table->setObjectValue(value, index.column(), index.row());
        return true;
    }

    QStringList mimeTypes() const override { return m_table->m_pasteboardTypes; }
    Qt::DropActions supportedDropActions() const override { return Qt::CopyAction; }
    Qt::DropActions supportedDragActions() const override { return Qt::CopyAction; }

    QMimeData *mimeData(const QModelIndexList &indexes) const override
    {
        const auto &d = m_table->m_delegate;
        if (!d.writeRowsToPasteboard)
            return nullptr;
        QList<int> rows;
        for (const QModelIndex &i : indexes)
            if (!rows.contains(i.row()))
                rows.append(i.row());
        std::sort(rows.begin(), rows.end());
        auto *mime = new QMimeData;
        if (!d.writeRowsToPasteboard(m_table, rows, mime)) {
            delete mime;
            return nullptr;
        }
        return mime;
    }

    bool canDropMimeData(const QMimeData *data, Qt::DropAction, int row, int, const QModelIndex &) const override
    {
        const auto &d = m_table->m_delegate;
        return d.validateDrop && d.validateDrop(m_table, data, row) != Qt::IgnoreAction;
    }

    bool dropMimeData(const QMimeData *data, Qt::DropAction action, int row, int column, const QModelIndex &parent) override
    {
        const auto &d = m_table->m_delegate;
        if (!canDropMimeData(data, action, row, column, parent) || !d.acceptDrop)
            return false;
        return d.acceptDrop(m_table, data, row);
    }

private:
    QWCellTableViewArray *m_table;
};

QWCellTableViewArray::QWCellTableViewArray(QWidget *parent) : QTableView(parent), m_model(new QWCellTableViewArrayModel(this))
{
    setModel(m_model);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setShowGrid(false);
    // Tab leaves the table for the next control, as everywhere else on the desktop; the
    // arrow keys move the selection. (An open cell editor still tabs from cell to cell.)
    setTabKeyNavigation(false);
    verticalHeader()->hide();
    horizontalHeader()->setStretchLastSection(true);
    connect(selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] { handleSelectionChange(); });
    connect(this, &QAbstractItemView::doubleClicked, this, [this](const QModelIndex &i) {
        if (i.isValid())
            editWithDelegate(i.row());
    });
}

QWCellTableViewArray::~QWCellTableViewArray() = default;

void QWCellTableViewArray::setColumns(const QList<QPair<QString, QString>> &identifiersAndTitles)
{
    m_columns = identifiersAndTitles;
    m_model->reset();
}

QString QWCellTableViewArray::keyForColumn(int column) const
{
    if (!m_hasKeys || column < 0 || column >= m_columns.size())
        return {};
    return m_keys.value(m_columns[column].second);
}

QVariant QWCellTableViewArray::orderingValue(const QVariant &element) const
{
    return m_hasKeys ? element.toMap().value(m_alphabetizedKey) : element;
}

void QWCellTableViewArray::initWithArray(QVariantList *array, const Delegate &delegate, const QStringList &keys)
{
    m_delegate = delegate;
    m_array = array;
    m_originalArray = *array;
    m_nonAlphabetized = !m_columns.isEmpty() && m_columns[0].first.endsWith(QStringLiteral("Nonalphabetized"));
    m_numberOfColumns = int(m_columns.size());
    m_hasKeys = !keys.isEmpty();
    m_keys.clear();
    for (int i = 0; m_hasKeys && i < m_columns.size() && i < keys.size(); ++i)
        m_keys.insert(m_columns[i].second, keys[i]);
    if (m_numberOfColumns == 1 && !m_hasKeys) {
        m_emptyItem = QString(QLatin1String(""));
    } else {
        m_alphabetizedKey = keys.value(0);
        QVariantMap empty;
        for (const QString &k : keys)
            empty.insert(k, QString(QLatin1String("")));
        m_emptyItem = empty;
    }
    hideErrorMessage();
    reloadData();
    clearSelection();
    scrollToTop();
    if (m_deleteButton)
        m_deleteButton->setEnabled(false);
    if (m_delegate.registerForDraggedTypes)
        m_delegate.registerForDraggedTypes(this);
}

void QWCellTableViewArray::registerForDraggedTypes(const QStringList &types)
{
    m_pasteboardTypes = types;
    setDragEnabled(true);
    setAcceptDrops(true);
    setDropIndicatorShown(true);
    setDragDropMode(QAbstractItemView::DragDrop);
    setDefaultDropAction(Qt::CopyAction);
}

void QWCellTableViewArray::reloadData()
{
    // A reset drops the selection: keep it across reloads, as a table reload does.
    const QList<int> rows = selectedRows();
    const QSignalBlocker block(selectionModel());
    m_model->reset();
    for (int r : rows)
        if (m_array && r < m_array->size())
            selectionModel()->select(m_model->index(r, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows);
}

QList<int> QWCellTableViewArray::selectedRows() const
{
    QList<int> rows;
    for (const QModelIndex &i : selectionModel()->selectedRows())
        rows.append(i.row());
    std::sort(rows.begin(), rows.end());
    return rows;
}

void QWCellTableViewArray::selectRowAlone(int row)
{
    if (row < 0 || !m_array || row >= m_array->size()) {
        clearSelection();
        return;
    }
    selectionModel()->select(m_model->index(row, 0),
                             QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    selectionModel()->setCurrentIndex(m_model->index(row, 0), QItemSelectionModel::NoUpdate);
}

bool QWCellTableViewArray::cellEnabled(int column, int row) const
{
    if (!m_array || row < 0 || row >= m_array->size())
        return false;
    CellDisplay cell;
    if (m_delegate.willDisplayCell)
        m_delegate.willDisplayCell(const_cast<QWCellTableViewArray *>(this), cell, column, row);
    return cell.enabled;
}

QString QWCellTableViewArray::errorMessage() const
{
    return m_errorField && !m_errorField->isHidden() ? m_errorField->text() : QString();
}

void QWCellTableViewArray::hideErrorMessage()
{
    if (m_errorField)
        m_errorField->hide();
}

void QWCellTableViewArray::showErrorMessage(const QString &message)
{
    if (m_errorField) {
        m_errorField->setText(message);
        m_errorField->show();
    }
}

void QWCellTableViewArray::handleSelectionChange()
{
    hideErrorMessage();
    if (m_deleteButton)
        m_deleteButton->setEnabled(!selectionModel()->selectedRows().isEmpty());
    if (m_delegate.selectionDidChange)
        m_delegate.selectionDidChange(this);
    Q_EMIT selectionDidChange();
}

void QWCellTableViewArray::addEntryToTable()
{
    hideErrorMessage();
    endEditing();
    if (m_delegate.addEntry && m_delegate.addEntry(this)) {
        reloadData();
        return;
    }
    m_array->append(m_emptyItem);
    reloadData();
    selectRowAlone(int(m_array->size() - 1));
    edit(m_model->index(int(m_array->size() - 1), 0));
}

qsizetype QWCellTableViewArray::addEntryToArray(const QVariant &element)
{
    if (m_nonAlphabetized || element == m_emptyItem) {
        m_array->append(element);
        return m_array->size() - 1;
    }
    const QString value = orderingValue(element).toString();
    for (qsizetype i = 0; i < m_array->size(); ++i) {
        if (orderingValue(m_array->at(i)).toString().compare(value, Qt::CaseInsensitive) > 0) {
            m_array->insert(i, element);
            return i;
        }
    }
    m_array->append(element);
    return m_array->size() - 1;
}

void QWCellTableViewArray::removeBlankEntries()
{
    removeBlankEntriesExcept(-1);
}

int QWCellTableViewArray::removeBlankEntriesExcept(int keep)
{
    // The row being edited may be blank itself (the first of two new rows): it stays, and its
    // index follows the rows removed above it, so the edit lands on it and on nothing else.
    bool removed = false;
    for (qsizetype i = m_array->size() - 1; i >= 0; --i) {
        if (i == keep || !orderingValue(m_array->at(i)).toString().isEmpty())
            continue;
        m_array->removeAt(i);
        removed = true;
        if (i < keep)
            --keep;
    }
    if (removed)
        reloadData();
    return keep;
}

void QWCellTableViewArray::setObjectValue(const QVariant &value, int column, int row)
{
    if (column < 0 || column >= m_columns.size() || row < 0 || row >= m_array->size())
        return;
    const QString identifier = m_columns[column].first;
    if (identifier == u"NOCHANGE")
        return;
    const QVariant old = m_array->at(row);
    const QString key = keyForColumn(column);
    const QVariant oldValue = m_hasKeys ? old.toMap().value(key) : old;
    if (oldValue == value)
        return;
    hideErrorMessage();
    if (row != m_array->size() - 1)
        row = removeBlankEntriesExcept(row);
    if (identifier.startsWith(QStringLiteral("Unique")) && !value.toString().isEmpty()) {
        const bool ignoreCase = identifier.startsWith(QStringLiteral("UniqueI"));
        const QString text = value.toString();
        for (qsizetype i = m_array->size() - 1; i >= 0; --i) {
            const QString other = (m_hasKeys ? m_array->at(i).toMap().value(key) : m_array->at(i)).toString();
            if (other.compare(text, ignoreCase ? Qt::CaseInsensitive : Qt::CaseSensitive) == 0) {
                showErrorMessage(ignoreCase ? kEntryExistsIgnoringCase : kEntryExists);
                return;
            }
        }
    }
    QVariant element = value;
    if (m_hasKeys) {
        QVariantMap m = old.toMap();
        m.insert(key, value);
        element = m;
    }
    QString error;
    if (m_delegate.addEntryError)
        error = m_delegate.addEntryError(this, element);
    else if (m_delegate.editEntryError)
        error = m_delegate.editEntryError(this, element, old);
    if (!error.isNull()) {
        showErrorMessage(error);
        return;
    }
    qsizetype at = row;
    if (m_nonAlphabetized) {
        (*m_array)[row] = element;
    } else if (!m_hasKeys || key == m_alphabetizedKey) {
        m_array->removeAt(row);
        at = addEntryToArray(element);
    } else {
        (*m_array)[row] = element;
    }
    if (m_delegate.editedEntry)
        m_delegate.editedEntry(this, old, element);
    reloadData();
    selectRowAlone(int(at));
    scrollTo(m_model->index(int(at), 0));
    if (m_delegate.changed)
        m_delegate.changed(this);
}

void QWCellTableViewArray::deleteSelectedEntriesFromTable()
{
    hideErrorMessage();
    endEditing();
    const QList<int> rows = selectedRows();
    int lowest = -1;
    for (qsizetype i = rows.size() - 1; i >= 0; --i) {
        const int row = rows[i];
        lowest = row;
        if (m_delegate.editEntryError) {
            const QString error = m_delegate.editEntryError(this, QVariant(), m_array->at(row));
            if (!error.isNull()) {
                showErrorMessage(error);
                return;
            }
        }
        m_array->removeAt(row);
        const QSignalBlocker block(selectionModel());
        m_model->reset();
    }
    if (!m_array->isEmpty() && lowest >= 0) {
        const QSignalBlocker block(selectionModel());
        selectRowAlone(int(std::min<qsizetype>(lowest, m_array->size() - 1)));
        scrollTo(m_model->index(std::max(0, lowest - 1), 0));
    }
    handleSelectionChange();
    if (m_delegate.changed)
        m_delegate.changed(this);
}

void QWCellTableViewArray::editWithDelegate(int row)
{
    hideErrorMessage();
    if (m_delegate.editEntryAtIndex && row >= 0) {
        m_delegate.editEntryAtIndex(this, row);
        reloadData();
    }
}

int QWCellTableViewArray::ok()
{
    endEditing();
    if (!m_delegate.addEntry)
        removeBlankEntries();
    m_array = nullptr;
    m_model->reset();
    return 1;
}

int QWCellTableViewArray::cancel()
{
    *m_array = m_originalArray;
    m_array = nullptr;
    m_model->reset();
    return 0;
}

void QWCellTableViewArray::commitData(QWidget *editor)
{
    // Storing an edit reloads the table, which would take every open editor with it, this one
    // included, before the view closes it. The view closes it right after the commit; the edit
    // is stored on the next pass, when the editor has gone.
    m_committingEditor = true;
    QTableView::commitData(editor);
    m_committingEditor = false;
    if (m_pendingEdits.isEmpty())
        return;
    QTimer::singleShot(0, this, &QWCellTableViewArray::storePendingEdits);
}

void QWCellTableViewArray::endEditing()
{
    if (state() == QAbstractItemView::EditingState)
        setFocus(); // commits and closes the editor
    storePendingEdits();
}

void QWCellTableViewArray::storePendingEdits()
{
    const QList<PendingEdit> edits = std::exchange(m_pendingEdits, {});
    for (const PendingEdit &e : edits)
        if (m_array)
            setObjectValue(e.value, e.column, e.row);
}

void QWCellTableViewArray::keyPressEvent(QKeyEvent *event)
{
    if ((event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) && state() != EditingState) {
        const QList<int> rows = selectedRows();
        if (rows.size() == 1) {
            editWithDelegate(rows.first());
            return;
        }
    }
    // Rows are what is selected here. With nothing selected, Down starts at the first row and
    // Up at the last, rather than one past wherever the view's current cell was left; Home and
    // End go to the first and last row, as in a list, not to the ends of the current row.
    if (event->modifiers() == Qt::NoModifier && state() != EditingState && m_array && !m_array->isEmpty()) {
        const int last = int(m_array->size() - 1);
        int row = -1;
        if (event->key() == Qt::Key_Home || (event->key() == Qt::Key_Down && selectedRows().isEmpty()))
            row = 0;
        else if (event->key() == Qt::Key_End || (event->key() == Qt::Key_Up && selectedRows().isEmpty()))
            row = last;
        if (row >= 0) {
            selectRowAlone(row);
            scrollTo(m_model->index(row, 0));
            return;
        }
    }
    QTableView::keyPressEvent(event);
}

} // namespace tess
