// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#include "OVAccessibleTable.h"

#include <QAccessibleWidget>
#include <QHash>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QPointer>
#include <QSet>
#include <QTableView>

namespace
{
QSet<QString> &servedClasses()
{
    static QSet<QString> classes;
    return classes;
}

class Cell : public QAccessibleInterface, public QAccessibleTableCellInterface, public QAccessibleActionInterface
{
public:
    Cell(QTableView *view, const QModelIndex &index)
        : m_view(view)
        , m_index(index)
    {
    }

    void *interface_cast(QAccessible::InterfaceType type) override
    {
        if (type == QAccessible::TableCellInterface) {
            return static_cast<QAccessibleTableCellInterface *>(this);
        }
        if (type == QAccessible::ActionInterface) {
            return static_cast<QAccessibleActionInterface *>(this);
        }
        return nullptr;
    }
    bool isValid() const override
    {
        return m_view && m_index.isValid();
    }
    QObject *object() const override
    {
        return nullptr;
    }
    QAccessibleInterface *parent() const override
    {
        return QAccessible::queryAccessibleInterface(m_view);
    }
    QAccessibleInterface *child(int) const override
    {
        return nullptr;
    }
    int childCount() const override
    {
        return 0;
    }
    int indexOfChild(const QAccessibleInterface *) const override
    {
        return -1;
    }
    QAccessibleInterface *childAt(int, int) const override
    {
        return nullptr;
    }
    QAccessible::Role role() const override
    {
        return QAccessible::Cell;
    }
    QRect rect() const override
    {
        QRect r = m_view->visualRect(m_index);
        if (!r.isNull()) {
            r.translate(m_view->viewport()->mapTo(m_view, QPoint(0, 0)));
            r.translate(m_view->mapToGlobal(QPoint(0, 0)));
        }
        return r;
    }
    QString text(QAccessible::Text t) const override
    {
        if (t == QAccessible::Description) {
            return m_index.data(Qt::AccessibleDescriptionRole).toString();
        }
        if (t != QAccessible::Name) {
            return QString();
        }
        for (const int role : {int(Qt::AccessibleTextRole), int(Qt::DisplayRole)}) {
            const QString name = m_index.data(role).toString();
            if (!name.isEmpty()) {
                return name;
            }
        }
        return m_view->model()->headerData(m_index.column(), Qt::Horizontal).toString();
    }
    void setText(QAccessible::Text, const QString &) override
    {
    }
    bool checkable() const
    {
        return m_index.data(Qt::CheckStateRole).isValid();
    }
    QAccessible::State state() const override
    {
        QAccessible::State st;
        if (!isValid()) {
            return st;
        }
        const Qt::ItemFlags flags = m_index.flags();
        QItemSelectionModel *selection = m_view->selectionModel();
        st.selected = selection && selection->isSelected(m_index);
        st.focused = selection && selection->currentIndex() == m_index;
        st.selectable = st.focusable = flags & Qt::ItemIsSelectable;
        st.editable = flags & Qt::ItemIsEditable;
        st.checkable = checkable();
        st.checked = m_index.data(Qt::CheckStateRole).toInt() == Qt::Checked;
        // A tick box whose check cannot be changed is drawn disabled: so it is.
        st.disabled = !(flags & Qt::ItemIsEnabled) || !m_view->isEnabled() || (st.checkable && !(flags & Qt::ItemIsUserCheckable));
        st.invisible = !m_view->viewport()->rect().intersects(m_view->visualRect(m_index));
        return st;
    }

    int columnExtent() const override
    {
        return 1;
    }
    int rowExtent() const override
    {
        return 1;
    }
    int columnIndex() const override
    {
        return m_index.column();
    }
    int rowIndex() const override
    {
        return m_index.row();
    }
    QList<QAccessibleInterface *> columnHeaderCells() const override
    {
        return {};
    }
    QList<QAccessibleInterface *> rowHeaderCells() const override
    {
        return {};
    }
    bool isSelected() const override
    {
        return state().selected;
    }
    QAccessibleInterface *table() const override
    {
        return parent();
    }

    QStringList actionNames() const override
    {
        return checkable() && !state().disabled ? QStringList{toggleAction()} : QStringList();
    }
    void doAction(const QString &name) override
    {
        if (name == toggleAction() && actionNames().contains(name)) {
            const bool checked = m_index.data(Qt::CheckStateRole).toInt() == Qt::Checked;
            m_view->model()->setData(m_index, checked ? Qt::Unchecked : Qt::Checked, Qt::CheckStateRole);
        }
    }
    QStringList keyBindingsForAction(const QString &) const override
    {
        return {};
    }

private:
    QPointer<QTableView> m_view;
    QPersistentModelIndex m_index;
};

class Table : public QAccessibleWidget, public QAccessibleTableInterface
{
public:
    explicit Table(QTableView *view)
        : QAccessibleWidget(view, QAccessible::Table)
    {
    }
    ~Table() override
    {
        forgetCells();
    }

    void *interface_cast(QAccessible::InterfaceType type) override
    {
        if (type == QAccessible::TableInterface) {
            return static_cast<QAccessibleTableInterface *>(this);
        }
        return QAccessibleWidget::interface_cast(type);
    }
    QTableView *view() const
    {
        return static_cast<QTableView *>(widget());
    }
    QAbstractItemModel *model() const
    {
        return view()->model();
    }

    int childCount() const override
    {
        return model() ? rowCount() * columnCount() : 0;
    }
    QAccessibleInterface *child(int index) const override
    {
        const int columns = columnCount();
        return columns ? cellAt(index / columns, index % columns) : nullptr;
    }
    int indexOfChild(const QAccessibleInterface *child) const override
    {
        if (QAccessibleTableCellInterface *cell = const_cast<QAccessibleInterface *>(child)->tableCellInterface()) {
            return cell->rowIndex() * columnCount() + cell->columnIndex();
        }
        return -1;
    }
    QAccessibleInterface *childAt(int x, int y) const override
    {
        const QPoint at = view()->viewport()->mapFromGlobal(QPoint(x, y));
        const QModelIndex index = view()->indexAt(at);
        return index.isValid() ? cellAt(index.row(), index.column()) : nullptr;
    }
    QAccessibleInterface *focusChild() const override
    {
        const QModelIndex current = view()->currentIndex();
        return current.isValid() ? cellAt(current.row(), current.column()) : nullptr;
    }

    QAccessibleInterface *caption() const override
    {
        return nullptr;
    }
    QAccessibleInterface *summary() const override
    {
        return nullptr;
    }
    QAccessibleInterface *cellAt(int row, int column) const override
    {
        if (!model() || row < 0 || column < 0 || row >= rowCount() || column >= columnCount()) {
            return nullptr;
        }
        const auto key = qMakePair(row, column);
        if (const QAccessible::Id id = m_cells.value(key)) {
            return QAccessible::accessibleInterface(id);
        }
        auto *cell = new Cell(view(), model()->index(row, column, view()->rootIndex()));
        m_cells.insert(key, QAccessible::registerAccessibleInterface(cell));
        return cell;
    }
    int selectedCellCount() const override
    {
        return selectedCells().size();
    }
    QList<QAccessibleInterface *> selectedCells() const override
    {
        QList<QAccessibleInterface *> cells;
        if (view()->selectionModel()) {
            const QModelIndexList indexes = view()->selectionModel()->selectedIndexes();
            for (const QModelIndex &index : indexes) {
                cells.append(cellAt(index.row(), index.column()));
            }
        }
        return cells;
    }
    QString columnDescription(int column) const override
    {
        return model() ? model()->headerData(column, Qt::Horizontal).toString() : QString();
    }
    QString rowDescription(int row) const override
    {
        return model() ? model()->headerData(row, Qt::Vertical).toString() : QString();
    }
    int columnCount() const override
    {
        return model() ? model()->columnCount(view()->rootIndex()) : 0;
    }
    int rowCount() const override
    {
        return model() ? model()->rowCount(view()->rootIndex()) : 0;
    }
    int selectedColumnCount() const override
    {
        return 0;
    }
    int selectedRowCount() const override
    {
        return selectedRows().size();
    }
    QList<int> selectedColumns() const override
    {
        return {};
    }
    QList<int> selectedRows() const override
    {
        QList<int> rows;
        if (view()->selectionModel()) {
            const QModelIndexList selected = view()->selectionModel()->selectedRows();
            for (const QModelIndex &index : selected) {
                rows.append(index.row());
            }
        }
        return rows;
    }
    bool isColumnSelected(int) const override
    {
        return false;
    }
    bool isRowSelected(int row) const override
    {
        return view()->selectionModel() && view()->selectionModel()->isRowSelected(row, view()->rootIndex());
    }
    bool selectRow(int row) override
    {
        view()->selectRow(row);
        return true;
    }
    bool selectColumn(int) override
    {
        return false;
    }
    bool unselectRow(int row) override
    {
        if (!view()->selectionModel()) {
            return false;
        }
        view()->selectionModel()->select(model()->index(row, 0, view()->rootIndex()), QItemSelectionModel::Deselect | QItemSelectionModel::Rows);
        return true;
    }
    bool unselectColumn(int) override
    {
        return false;
    }
    void modelChange(QAccessibleTableModelChangeEvent *) override
    {
        // Rows came or went: the cells are made again as they are asked for.
        forgetCells();
    }

private:
    void forgetCells() const
    {
        for (const QAccessible::Id id : std::as_const(m_cells)) {
            QAccessible::deleteAccessibleInterface(id);
        }
        m_cells.clear();
    }
    mutable QHash<QPair<int, int>, QAccessible::Id> m_cells;
};

QAccessibleInterface *factory(const QString &className, QObject *object)
{
    if (servedClasses().contains(className)) {
        if (auto *view = qobject_cast<QTableView *>(object)) {
            return new Table(view);
        }
    }
    return nullptr;
}
}

namespace OVAccessibleTable
{
void install(const char *className)
{
    if (servedClasses().isEmpty()) {
        QAccessible::installFactory(factory);
    }
    servedClasses().insert(QString::fromLatin1(className));
}
}
