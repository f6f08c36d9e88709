// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// The items table as a user meets it, offscreen.
#include "OVBackupItemModel.h"
#include "OVExclusionsSheet.h"
#include "OVFolderLabel.h"
#include "OVItemDelegate.h"
#include "OVItemsTable.h"
#include "OVTableView.h"
#include <QAccessible>
#include <QApplication>
#include <QComboBox>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QStyleOptionViewItem>
#include <QTest>
#include <QTreeWidget>
#include <memory>

class TestItemsTable : public QObject
{
    Q_OBJECT

    struct Table {
        QComboBox frequencyMenu;
        OVBackupItemModel model;
        OVTableView view;
        OVItemsTable table;
        explicit Table(int rows)
            : table(&view, prepared(&frequencyMenu), &model)
        {
            for (int i = 0; i < rows; ++i) {
                model.createNewBackupItem();
            }
            model.setFolder(0, OVBackupItemModel::ChooseSourceTag, QStringLiteral("/home/ann"), QStringLiteral("ann"));
            model.setFolder(0, OVBackupItemModel::ChooseDestinationTag, QStringLiteral("/media/ann/Disk/ann"), QStringLiteral("Disk: ann"));
            model.setEditable(true);
            view.resize(600, 300);
            view.show();
        }
        static QComboBox *prepared(QComboBox *menu)
        {
            menu->addItems({QStringLiteral("Daily"), QStringLiteral("Weekly"), QStringLiteral("Monthly"), QString(), QStringLiteral("Manually")});
            return menu;
        }
        QPoint cell(int row, int column) const
        {
            return view.visualRect(model.index(row, column)).center();
        }
        bool menuOpen() const
        {
            return view.viewport()->findChild<QComboBox *>(QStringLiteral("cellPopUp")) != nullptr;
        }
    };

private Q_SLOTS:
    void foldersOnDisksAreLabelledWithTheirDisk()
    {
        // A disk itself, the folders above disks, and look-alikes of them keep their names.
        const std::pair<const char *, const char *> rows[] = {
            {"/Volumes/Backup/Photos", "Backup: Photos"},
            {"/home/ann/Fotos \"x\"", "Fotos \"x\""},
            {"/media/ann/USB STICK/Photos/2024/", "USB STICK: 2024"},
            {"/run/media/ann/Backup/Work/../Play", "Backup: Play"},
            {"/media/ann", "ann"},
            {"/run/media/ann/Backup", "Backup"},
            {"/run/media", "media"},
            {"/mediafiles/ann/Disk/Folder", "Folder"},
            {"/home/ann/media/x/Disk/Folder", "Folder"},
            {"/run/user/1000/Disk/Folder", "Folder"},
        };
        for (const auto &[path, label] : rows) {
            QCOMPARE(OVFolderLabel::labelForPath(QString::fromUtf8(path)), QString::fromUtf8(label));
        }
        QVERIFY(!OVFolderLabel::startupDiskName().isEmpty());
        QCOMPARE(OVFolderLabel::labelForPath(QStringLiteral("/")), OVFolderLabel::startupDiskName());
    }

    void aPlainClickSelectsWithoutAMenuAndADeleteClosesThem()
    {
        Table t(3);
        QVERIFY(QTest::qWaitForWindowExposed(&t.view));
        QTest::mouseClick(t.view.viewport(), Qt::LeftButton, {}, t.cell(2, OVBackupItemModel::FrequencyColumn));
        QCOMPARE(t.table.selectedRow(), 2);
        QTest::qWait(QApplication::doubleClickInterval() + 200);
        QVERIFY(!t.menuOpen());
        // A click on the selected row's cell opens its menu.
        QTest::mouseClick(t.view.viewport(), Qt::LeftButton, {}, t.cell(2, OVBackupItemModel::FrequencyColumn));
        QTRY_VERIFY(t.menuOpen());
        // Escape closes the menu, a second one the cell's editor.
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Escape);
        QTest::qWait(100);
        QTest::keyClick(t.view.viewport()->findChild<QComboBox *>(QStringLiteral("cellPopUp")), Qt::Key_Escape);
        QTRY_VERIFY(!t.menuOpen());
        // A double-click on another row selects it and opens its menu (a real one: press, release, then the double press).
        QTest::mouseClick(t.view.viewport(), Qt::LeftButton, {}, t.cell(0, OVBackupItemModel::DestColumn));
        QTest::mouseDClick(t.view.viewport(), Qt::LeftButton, {}, t.cell(0, OVBackupItemModel::DestColumn));
        QCOMPARE(t.table.selectedRow(), 0);
        QTRY_VERIFY(t.menuOpen());
        // A delete leaves the next row selected, its menus closed.
        QTest::mouseClick(t.view.viewport(), Qt::LeftButton, {}, t.cell(1, OVBackupItemModel::SourceColumn));
        t.table.deleteSelected();
        QCOMPARE(t.model.rowCount(), 2);
        QCOMPARE(t.table.selectedRow(), 1);
        QTest::qWait(QApplication::doubleClickInterval() + 200);
        QVERIFY(!t.menuOpen());
        // The last row gone: the one above it is selected.
        t.table.deleteSelected();
        QCOMPARE(t.table.selectedRow(), 0);
        QVERIFY(!t.menuOpen());
    }

    // A row's own menu restores that row's source, or edits its exclusions; a row without a source has neither.
    void aRowsMenuRestoresAndExcludes()
    {
        Table t(2);
        QSignalSpy asked(&t.table, &OVItemsTable::restoreRequested);
        std::unique_ptr<QMenu> first(t.table.rowMenu(0, &t.view));
        auto *restore = first->findChild<QAction *>(QStringLiteral("restoreRowAction"));
        QVERIFY(restore && restore->isEnabled());
        restore->trigger();
        QCOMPARE(asked.count(), 1);
        QCOMPARE(asked.first().first().toString(), QStringLiteral("/home/ann"));
        std::unique_ptr<QMenu> empty(t.table.rowMenu(1, &t.view));
        QVERIFY(!empty->findChild<QAction *>(QStringLiteral("restoreRowAction"))->isEnabled());
        QVERIFY(!empty->findChild<QAction *>(QStringLiteral("exclusionsRowAction"))->isEnabled());
        // An addition asks about the earlier copies; OK gives the row its list, and the row shows it has one.
        QSignalSpy changed(&t.table, &OVItemsTable::changed);
        OVExclusionsSheet *sheet = t.table.showExclusions(0);
        QVERIFY(sheet);
        // Outside the source, or empty: refused with the reason.
        QVERIFY(!sheet->problemWith(QStringLiteral("/etc/passwd")).isNull() && !sheet->problemWith(QStringLiteral(" ")).isNull());
        const auto answer = [sheet](const char *button) {
            QMessageBox *question = nullptr;
            for (QMessageBox *box : sheet->findChildren<QMessageBox *>(QStringLiteral("removeFromBackupQuestion"))) {
                question = box->isVisible() ? box : question;
            }
            QVERIFY(question);
            question->findChild<QPushButton *>(QLatin1String(button))->click();
        };
        sheet->add(QStringLiteral("*.iso"));
        answer("removeFromBackupButton");
        sheet->add(QStringLiteral("/home/ann/Videos"));
        answer("keepInBackupButton");
        const QStringList both{QStringLiteral("*.iso"), QStringLiteral("/home/ann/Videos")};
        QCOMPARE(sheet->entries(), both);
        sheet->accept();
        QCOMPARE(t.model.item(0).exclusions(), both);
        QCOMPARE(t.model.item(0).exclusionsRemovedFromBackup(), QStringList({QStringLiteral("*.iso")}));
        QCOMPARE(changed.count(), 1);
        QVERIFY(t.model.index(0, OVBackupItemModel::SourceColumn).data(Qt::AccessibleDescriptionRole).isValid());
        // Remove takes an entry away; Cancel keeps the row as it was.
        sheet = t.table.showExclusions(0);
        auto *list = sheet->findChild<QTreeWidget *>(QStringLiteral("exclusionList"));
        list->topLevelItem(0)->setSelected(true);
        sheet->findChild<QPushButton *>(QStringLiteral("removeButton"))->click();
        QCOMPARE(sheet->entries(), both.mid(1));
        QVERIFY(sheet->removedFromBackup().isEmpty());
        sheet->reject();
        QCOMPARE(t.model.item(0).exclusions().size(), 2);
        // Locked, it only shows.
        t.model.setEditable(false);
        sheet = t.table.showExclusions(0);
        QVERIFY(!sheet->findChild<QPushButton *>(QStringLiteral("addPatternButton"))->isEnabled());
        sheet->accept();
        QCOMPARE(changed.count(), 1);
        sheet->close();
    }

    // A tick box that cannot be used (no folders yet, or the pane locked) is drawn disabled, reported disabled to a screen reader and not toggled by a click.
    void tickBoxesThatCannotBeUsed()
    {
        Table t(2);
        QVERIFY(QTest::qWaitForWindowExposed(&t.view));
        auto *delegate = qobject_cast<OVItemDelegate *>(t.view.itemDelegate());
        QVERIFY(delegate);
        auto drawnEnabled = [&](int row, int column) {
            QStyleOptionViewItem option;
            option.state = QStyle::State_Enabled;
            delegate->initStyleOption(&option, t.model.index(row, column));
            return bool(option.state & QStyle::State_Enabled);
        };
        QAccessibleTableInterface *table = QAccessible::queryAccessibleInterface(&t.view)->tableInterface();
        QVERIFY(table);
        auto reported = [table](int row) {
            return table->cellAt(row, OVBackupItemModel::CheckColumn);
        };
        // Row 0 has both folders: its box can be used; row 1 has none, its other cells as they are.
        QVERIFY(drawnEnabled(0, OVBackupItemModel::CheckColumn) && !drawnEnabled(1, OVBackupItemModel::CheckColumn));
        QVERIFY(drawnEnabled(1, OVBackupItemModel::SourceColumn));
        QVERIFY(reported(0)->state().checkable && !reported(0)->state().disabled);
        QVERIFY(reported(1)->state().checkable && reported(1)->state().disabled);
        QVERIFY(reported(1)->actionInterface()->actionNames().isEmpty());
        const bool unusable = t.model.item(1).checkColumn();
        QTest::mouseClick(t.view.viewport(), Qt::LeftButton, {}, t.cell(1, OVBackupItemModel::CheckColumn));
        QCOMPARE(t.model.item(1).checkColumn(), unusable);
        const bool usable = t.model.item(0).checkColumn();
        reported(0)->actionInterface()->doAction(QAccessibleActionInterface::toggleAction());
        QCOMPARE(t.model.item(0).checkColumn(), !usable);
        QCOMPARE(reported(0)->state().checked, !usable);
        // Locked: no box can be used, also in rows added since.
        t.model.setEditable(false);
        QVERIFY(!drawnEnabled(0, OVBackupItemModel::CheckColumn));
        QVERIFY(reported(0)->state().disabled);
        t.model.createNewBackupItem();
        QCOMPARE(table->rowCount(), 3);
        QVERIFY(reported(2)->state().disabled);
    }
};

QTEST_MAIN(TestItemsTable)
#include "test_itemstable.moc"
