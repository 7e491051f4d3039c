#pragma once
// A table that edits an array in place: one row per element, one column per key. Keeps the
// array in order of its first key (unless told not to), refuses duplicates in columns marked
// "Unique"/"UniqueI", drops edits to "NOCHANGE" columns, and asks an optional delegate about
// everything it cannot decide itself.

#include <QIcon>
#include <QTableView>
#include <QVariant>

#include <functional>

class QAbstractButton;
class QLabel;
class QMimeData;

namespace tess {

class QWCellTableViewArrayModel;

class QWCellTableViewArray : public QTableView {
    Q_OBJECT

public:
    static const QString kEntryExists;            // "Error: Entry already exists."
    static const QString kEntryExistsIgnoringCase; // "Error: Entry already exists (case insensitive)."

    // What a cell shows, for the display hook to change.
    struct CellDisplay {
        QIcon icon;
        bool enabled = true;
    };

    // The delegate's hooks. Every one is optional: an empty function is a hook not implemented.
    struct Delegate {
        std::function<bool(QWCellTableViewArray *)> addEntry;
        std::function<void(QWCellTableViewArray *, int row)> editEntryAtIndex;
        std::function<void(QWCellTableViewArray *)> selectionDidChange;
        std::function<void(QWCellTableViewArray *)> changed;
        std::function<QString(QWCellTableViewArray *, const QVariant &newEntry)> addEntryError;
        std::function<QString(QWCellTableViewArray *, const QVariant &newEntry, const QVariant &oldEntry)> editEntryError;
        std::function<void(QWCellTableViewArray *, const QVariant &oldEntry, const QVariant &newEntry)> editedEntry;
        std::function<void(QWCellTableViewArray *, CellDisplay &, int column, int row)> willDisplayCell;
        std::function<QString(QWCellTableViewArray *, int column, int row)> toolTipForCell;
        std::function<bool(QWCellTableViewArray *, const QList<int> &rows, QMimeData *)> writeRowsToPasteboard;
        std::function<Qt::DropAction(QWCellTableViewArray *, const QMimeData *, int row)> validateDrop;
        std::function<bool(QWCellTableViewArray *, const QMimeData *, int row)> acceptDrop;
        std::function<void(QWCellTableViewArray *)> registerForDraggedTypes;
    };

    explicit QWCellTableViewArray(QWidget *parent = nullptr);
    ~QWCellTableViewArray() override;

    // The columns as the window layout gives them: identifier (with its markers) and title.
    void setColumns(const QList<QPair<QString, QString>> &identifiersAndTitles);
    void setAddButton(QAbstractButton *button) { m_addButton = button; }
    void setDeleteButton(QAbstractButton *button) { m_deleteButton = button; }
    void setErrorMessageField(QLabel *field) { m_errorField = field; }
    // What a screen reader calls a column that shows no words (an icon column).
    void setColumnAccessibleName(int column, const QString &name) { m_accessibleNames.insert(column, name); }

    // initWithArray:editDelegate:keys: — the array is shared with its owner, not copied. No
    // keys: a list of plain strings.
    void initWithArray(QVariantList *array, const Delegate &delegate, const QStringList &keys);

    void addEntryToTable();
    void deleteSelectedEntriesFromTable();
    qsizetype addEntryToArray(const QVariant &element);
    void removeBlankEntries();
    void editWithDelegate(int row);
    int ok();
    int cancel();
    // tableView:setObjectValue:forTableColumn:row: — an in-cell edit.
    void setObjectValue(const QVariant &value, int column, int row);

    void reloadData();
    QVariantList *array() const { return m_array; }
    QList<int> selectedRows() const;
    void selectRowAlone(int row);
    // Whether the display hook leaves the cell enabled (a button cell that may act).
    bool cellEnabled(int column, int row) const;
    QString errorMessage() const;
    void hideErrorMessage();
    void showErrorMessage(const QString &message);
    const Delegate &editDelegate() const { return m_delegate; }
    QStringList pasteboardTypes() const { return m_pasteboardTypes; }
    void registerForDraggedTypes(const QStringList &types);

Q_SIGNALS:
    void selectionDidChange();

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void commitData(QWidget *editor) override;

private:
    friend class QWCellTableViewArrayModel;
    QVariant orderingValue(const QVariant &element) const;
    QString keyForColumn(int column) const;
    void handleSelectionChange();
    // Ends an in-cell edit and stores what was typed, before the array is touched otherwise.
    void endEditing();
    void storePendingEdits();
    // removeBlankEntries, sparing one row; answers where that row is afterwards.
    int removeBlankEntriesExcept(int keep);

    QWCellTableViewArrayModel *m_model;
    QAbstractButton *m_addButton = nullptr;
    QAbstractButton *m_deleteButton = nullptr;
    QLabel *m_errorField = nullptr;
    QVariantList *m_array = nullptr;
    QVariantList m_originalArray;
    int m_numberOfColumns = 0;
    QVariant m_emptyItem;
    Delegate m_delegate;
    QMap<QString, QString> m_keys; // header title -> key
    bool m_hasKeys = false;
    QString m_alphabetizedKey;
    bool m_nonAlphabetized = false;
    QList<QPair<QString, QString>> m_columns;
    QStringList m_pasteboardTypes;
    QHash<int, QString> m_accessibleNames;
    // An edit typed into a cell, held until the view has closed the editor that typed it.
    struct PendingEdit {
        QVariant value;
        int column = -1;
        int row = -1;
    };
    bool m_committingEditor = false;
    QList<PendingEdit> m_pendingEdits;
};

} // namespace tess
