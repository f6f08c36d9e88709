// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#include "OVItemsTable.h"

#include "OVBackupItemModel.h"
#include "OVExclusionsSheet.h"
#include "OVFolderLabel.h"
#include "OVItemDelegate.h"
#include "OVLocalizedStrings.h"
#include "OVPreviewWindow.h"

#include <QComboBox>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QHeaderView>
#include <QMenu>
#include <QTableView>

OVItemsTable::OVItemsTable(QTableView *view, QComboBox *frequencyMenu, OVBackupItemModel *model, QObject *parent)
    : QObject(parent)
    , m_view(view)
    , m_model(model)
{
    // The frequency menu's fourth entry is no frequency: a separator.
    frequencyMenu->removeItem(OVBackupItem::NoSchedule);
    frequencyMenu->insertSeparator(OVBackupItem::NoSchedule);
    QStringList titles;
    for (int i = 0; i < frequencyMenu->count(); ++i) {
        titles.append(frequencyMenu->itemText(i));
    }
    m_model->setFrequencyTitles(titles);

    m_view->setModel(m_model);
    auto *delegate = new OVItemDelegate(m_view);
    m_view->setItemDelegate(delegate);
    connect(delegate, &OVItemDelegate::entryChosen, this, &OVItemsTable::menuEntryChosen, Qt::QueuedConnection);
    connect(m_model, &OVBackupItemModel::itemEdited, this, &OVItemsTable::changed);
    QHeaderView *header = m_view->horizontalHeader();
    header->setSectionResizeMode(OVBackupItemModel::CheckColumn, QHeaderView::ResizeToContents);
    header->setSectionResizeMode(OVBackupItemModel::FrequencyColumn, QHeaderView::ResizeToContents);
    header->setSectionResizeMode(OVBackupItemModel::SourceColumn, QHeaderView::Stretch);
    header->setSectionResizeMode(OVBackupItemModel::DestColumn, QHeaderView::Stretch);

    m_view->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(m_view, &QWidget::customContextMenuRequested, this, [this](const QPoint &position) {
        const QModelIndex index = m_view->indexAt(position);
        if (!index.isValid()) {
            return;
        }
        m_view->selectRow(index.row());
        QMenu *menu = rowMenu(index.row(), m_view);
        menu->setAttribute(Qt::WA_DeleteOnClose);
        menu->popup(m_view->viewport()->mapToGlobal(position));
    });
}

QMenu *OVItemsTable::rowMenu(int row, QWidget *parent)
{
    auto *menu = new QMenu(parent);
    const QString source = row >= 0 && row < m_model->items().size() ? m_model->item(row).sourcePath() : QString();
    QAction *restore = menu->addAction(QIcon::fromTheme(QStringLiteral("document-revert")), OVLocalized("RestoreMenuItem"));
    restore->setObjectName(QStringLiteral("restoreRowAction"));
    // Nothing to get back for a row without a source folder.
    restore->setEnabled(!source.isEmpty());
    connect(restore, &QAction::triggered, this, [this, source] {
        Q_EMIT restoreRequested(source);
    });
    const bool complete = !source.isEmpty() && m_model->item(row).isComplete();
    QAction *exclusions = menu->addAction(QIcon::fromTheme(QStringLiteral("view-filter")), OVLocalized("ExclusionsMenuItem"));
    exclusions->setObjectName(QStringLiteral("exclusionsRowAction"));
    exclusions->setEnabled(!source.isEmpty());
    connect(exclusions, &QAction::triggered, this, [this, row] {
        showExclusions(row);
    });
    QAction *preview = menu->addAction(QIcon::fromTheme(QStringLiteral("document-preview")), OVLocalized("PreviewMenuItem"));
    preview->setObjectName(QStringLiteral("previewRowAction"));
    preview->setEnabled(complete && !m_model->item(row).toast());
    connect(preview, &QAction::triggered, this, [this, row] {
        showPreview(row);
    });
    return menu;
}

OVExclusionsSheet *OVItemsTable::showExclusions(int row)
{
    if (row < 0 || row >= m_model->rowCount()) {
        return nullptr;
    }
    const OVBackupItem &item = m_model->item(row);
    auto *sheet = new OVExclusionsSheet(item.sourcePath(), item.exclusions(), item.exclusionsRemovedFromBackup(), m_model->isEditable(), m_view->window());
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    // The row is found again by its source: rows may move while it is open.
    const QString source = item.sourcePath();
    connect(sheet, &QDialog::accepted, this, [this, sheet, row, source] {
        if (row < m_model->rowCount() && m_model->item(row).sourcePath() == source && m_model->isEditable()) {
            m_model->setExclusions(row, sheet->entries(), sheet->removedFromBackup());
        }
    });
    sheet->open();
    return sheet;
}

OVPreviewWindow *OVItemsTable::showPreview(int row)
{
    if (row < 0 || row >= m_model->rowCount()) {
        return nullptr;
    }
    const OVBackupItem &item = m_model->item(row);
    auto *window = new OVPreviewWindow(item, OVPreview::savedOptions(item), m_view->window());
    window->setAttribute(Qt::WA_DeleteOnClose);
    window->setModal(false);
    window->show();
    window->start();
    return window;
}

int OVItemsTable::selectedRow() const
{
    const QItemSelectionModel *selection = m_view->selectionModel();
    const QModelIndexList rows = selection ? selection->selectedRows() : QModelIndexList();
    return rows.isEmpty() ? -1 : rows.first().row();
}

QString OVItemsTable::restoreFolder() const
{
    const int row = selectedRow();
    QString path = row >= 0 && row < m_model->items().size() ? m_model->item(row).sourcePath() : QString();
    for (int i = 0; path.isEmpty() && i < m_model->items().size(); ++i) {
        path = m_model->item(i).sourcePath();
    }
    return path;
}

void OVItemsTable::menuEntryChosen(int row, int column, int tag)
{
    Q_UNUSED(row)
    if (column == OVBackupItemModel::SourceColumn && tag == OVBackupItemModel::ChooseSourceTag) {
        chooseFolder(tag);
    } else if (column == OVBackupItemModel::DestColumn) {
        if (tag == OVBackupItemModel::ChooseDestinationTag) {
            chooseFolder(tag);
        } else {
            setToastFlag(tag);
        }
    }
}

void OVItemsTable::chooseFolder(int tag)
{
    const int row = selectedRow();
    if (row < 0) {
        return;
    }
    m_currentCell = tag;
    if (tag == OVBackupItemModel::ChooseDestinationTag) {
        setToastFlag(tag);
    }
    const OVBackupItem &item = m_model->item(row);
    const QString current = tag == OVBackupItemModel::ChooseDestinationTag ? item.destPath() : item.sourcePath();
    auto *panel = new QFileDialog(m_view->window());
    panel->setObjectName(QStringLiteral("folderPanel"));
    panel->setAttribute(Qt::WA_DeleteOnClose);
    panel->setFileMode(QFileDialog::Directory);
    panel->setOption(QFileDialog::ShowDirsOnly);
    panel->setLabelText(QFileDialog::Accept, OVLocalized("Choose"));
    panel->setDirectory(!current.isEmpty() && QFileInfo(current).isDir() ? current : QDir::homePath());
    panel->setWindowModality(Qt::WindowModal);
    connect(panel, &QFileDialog::finished, this, [this, panel](int result) {
        const QStringList chosen = panel->selectedFiles();
        openPanelDidEnd(result == QDialog::Accepted ? 1 : 0, chosen.isEmpty() ? QString() : chosen.constFirst());
    });
    panel->open();
}

void OVItemsTable::openPanelDidEnd(int returnCode, const QString &path)
{
    const int row = selectedRow();
    if (returnCode == 1 && row >= 0 && !path.isEmpty()) {
        m_model->setFolder(row, m_currentCell, path, OVFolderLabel::labelForPath(path));
    }
    Q_EMIT changed();
}

void OVItemsTable::setToastFlag(int tag)
{
    const int row = selectedRow();
    if (row >= 0) {
        m_model->setToastFlag(row, tag == OVBackupItemModel::ToastTag);
    }
}

void OVItemsTable::deleteSelected()
{
    const int row = selectedRow();
    if (row < 0) {
        return;
    }
    m_model->removeItem(row);
    // The row that took its place is selected, ready for the next "−";
    // its menus stay closed until asked for.
    const int next = qMin(row, m_model->rowCount() - 1);
    if (next >= 0) {
        m_view->selectRow(next);
    }
    Q_EMIT changed();
}
