// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QObject>

class QComboBox;
class QMenu;
class QWidget;
class QTableView;
class OVBackupItemModel;
class OVExclusionsSheet;
class OVPreviewWindow;

// The items table on the pane: its model, its cells and per-row menus, and
// the folder dialog that a menu entry opens for the selected row.
class OVItemsTable : public QObject
{
    Q_OBJECT
public:
    // The frequency column's titles are those of the window's frequency menu.
    OVItemsTable(QTableView *view, QComboBox *frequencyMenu, OVBackupItemModel *model, QObject *parent = nullptr);

    int selectedRow() const;
    // What "Restore…" opens: the selected item's source folder, else the
    // first item's that has one; empty when none has.
    QString restoreFolder() const;
    // The folder dialog for the selected row: tag 1 source, 2 destination.
    void chooseFolder(int tag);
    // The dialog ended: OK (1) takes the folder for the selected row.
    void openPanelDidEnd(int returnCode, const QString &path);
    // Tag 6 (the Toast entry) sets the selected row's Toast flag; any other clears it.
    void setToastFlag(int tag);
    // Removes the selected row, if any.
    void deleteSelected();
    // A row's own menu (the view's context menu): "Restore…" for its
    // source, "Exclusions…" and "Preview…".
    QMenu *rowMenu(int row, QWidget *parent);
    // The row's exclusions sheet (only shown while the table is locked).
    OVExclusionsSheet *showExclusions(int row);
    // What the row's next run would do, in a window of its own.
    OVPreviewWindow *showPreview(int row);

Q_SIGNALS:
    // An item changed: the pane refreshes what depends on the items.
    void changed();
    // The user asked to get files of this source folder back.
    void restoreRequested(const QString &sourceFolder);

private:
    void menuEntryChosen(int row, int column, int tag);

    QTableView *m_view;
    OVBackupItemModel *m_model;
    // Which cell opened the folder dialog: 1 source, 2 destination.
    int m_currentCell = 0;
};
