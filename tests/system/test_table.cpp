// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// The items table, its menus, the folder dialog, and Toast detection on made-up bundles (Toast does not exist on Linux).
#include "OVBackupItemModel.h"
#include "OVOrvanePref.h"
#include "OVPropertyList.h"
#include "OVSettingsDomain.h"
#include "OVToast.h"
#include "ovtestfiles.h"
#include <QFileDialog>
#include <QPushButton>
#include <QSignalSpy>
#include <QTableView>
#include <QToolButton>

class TestTable : public QObject
{
    Q_OBJECT
    static OVBackupItem labelled()
    {
        OVBackupItem item;
        item.setFrequencyColumn(int(OVFrequency::Daily));
        item.setCheckColumn(true);
        item.setSourcePath(QStringLiteral("/root"));
        item.setBackupSource(QStringLiteral("root"));
        item.setDestPath(QStringLiteral("/"));
        item.setBackupDestination(QStringLiteral("Disk"));
        return item;
    }

    static QStringList titles(const QVector<OVBackupItemModel::MenuEntry> &menu)
    {
        QStringList result;
        for (const auto &entry : menu) {
            result.append(entry.separator ? QStringLiteral("-") : entry.title + QLatin1Char('/') + QString::number(entry.tag));
        }
        return result;
    }

private Q_SLOTS:
    void modelValuesAndSetterRules()
    {
        OVBackupItemModel model;
        model.setFrequencyTitles({QStringLiteral("Daily"), QStringLiteral("Weekly"), QStringLiteral("Monthly"), QString(), QStringLiteral("Manually")});
        OVBackupItem fresh;
        fresh.setCheckColumn(true);
        fresh.setFrequencyColumn(int(OVFrequency::Manual));
        model.setItems({fresh, labelled()});
        const QModelIndex check = model.index(1, OVBackupItemModel::CheckColumn);
        // Locked or off: nothing can be selected or changed.
        QCOMPARE(model.flags(check), Qt::NoItemFlags);
        QVERIFY(!model.setData(check, Qt::Unchecked, Qt::CheckStateRole));
        QVERIFY(!model.item(1).checkEnabled());
        model.setEditable(true);
        QVERIFY(model.item(1).checkEnabled());
        // (A new item's tick box waits for both folders: test_itemstable.)
        QVERIFY(model.flags(model.index(0, OVBackupItemModel::FrequencyColumn)) & Qt::ItemIsSelectable);
        QSignalSpy edited(&model, &OVBackupItemModel::itemEdited);
        QVERIFY(model.setData(check, Qt::Unchecked, Qt::CheckStateRole));
        QVERIFY(!model.item(1).checkColumn());
        QVERIFY(model.setData(model.index(1, OVBackupItemModel::FrequencyColumn), 2));
        QCOMPARE(model.index(1, OVBackupItemModel::FrequencyColumn).data().toString(), QStringLiteral("Monthly"));
        QCOMPARE(edited.count(), 2);
        // A Toast choice alone enables the tick box.
        model.setToastFlag(0, true);
        QVERIFY(!model.item(0).checkEnabled());
        model.setFolder(0, OVBackupItemModel::ChooseSourceTag, QStringLiteral("/srv"), QStringLiteral("srv"));
        QVERIFY(model.item(0).checkEnabled());
        QCOMPARE(model.item(0).sourcePath(), QStringLiteral("/srv"));
        // A path shows whole as its tool tip.
        QCOMPARE(model.index(1, OVBackupItemModel::SourceColumn).data(Qt::ToolTipRole).toString(), QStringLiteral("/root"));
    }

    void menusPerRow()
    {
        OVBackupItemModel model;
        OVBackupItem fresh;
        model.setItems({fresh, labelled()});
        const QString choose = QStringLiteral("Choose Folder…");
        QCOMPARE(titles(model.sourceMenu(0)), QStringList{choose + QStringLiteral("/1")});
        QCOMPARE(titles(model.destMenu(0)), QStringList{choose + QStringLiteral("/2")});
        QCOMPARE(titles(model.sourceMenu(1)), (QStringList{QStringLiteral("root/0"), QStringLiteral("-"), choose + QStringLiteral("/1")}));
        QCOMPARE(titles(model.destMenu(1)), (QStringList{QStringLiteral("Disk/0"), QStringLiteral("-"), choose + QStringLiteral("/2")}));
        QCOMPARE(model.sourceMenu(1).first().iconPath, QStringLiteral("/root"));
        QCOMPARE(model.index(0, OVBackupItemModel::SourceColumn).data().toString(), choose);
        QCOMPARE(model.index(1, OVBackupItemModel::DestColumn).data().toString(), QStringLiteral("Disk"));
        model.setToast(true, QStringLiteral("/Applications/Toast Titanium.app/"));
        const QString toast = QStringLiteral("Burn to Disc with Toast/6");
        QCOMPARE(titles(model.destMenu(0)), (QStringList{choose + QStringLiteral("/2"), QStringLiteral("-"), toast}));
        QCOMPARE(titles(model.destMenu(1)),
                 (QStringList{QStringLiteral("Disk/0"), QStringLiteral("-"), choose + QStringLiteral("/2"), QStringLiteral("-"), toast}));
        model.setToastFlag(1, true);
        QCOMPARE(model.selectedDestIndex(1), 4);
        QCOMPARE(model.index(1, OVBackupItemModel::DestColumn).data().toString(), QStringLiteral("Burn to Disc with Toast"));
        // Without Toast on the machine a Toast item's destination shows nothing.
        model.setToast(false, QString());
        QVERIFY(!model.index(1, OVBackupItemModel::DestColumn).data().isValid());
        QCOMPARE(model.destMenu(1).size(), 3);
    }

    void toastDetection()
    {
        const QString apps = QDir::tempPath() + QStringLiteral("/ov-apps");
        QDir(apps).removeRecursively();
        auto bundle = [&apps](const QString &where, const char *name, const char *version) {
            writeFile(apps + where + QStringLiteral("/Contents/Info.plist"),
                      OVPropertyList::toXml(QVariantMap{{QStringLiteral("CFBundleSignature"), QStringLiteral("CDr3")},
                                                        {QStringLiteral("CFBundleName"), QString::fromLatin1(name)},
                                                        {QStringLiteral("CFBundleShortVersionString"), QString::fromLatin1(version)}}));
        };
        QVERIFY(!OVToast::detect({apps}).installed);
        // Too old, or another name: not Toast.
        for (const auto &[name, version] : {std::pair{"Toast Titanium", "5.2.3"}, {"Toast 6 Titanium", "6.0.1"}}) {
            bundle(QStringLiteral("/%1.app").arg(QLatin1String(name)), name, version);
            QVERIFY2(!OVToast::detect({apps}).installed, name);
            QDir(apps).removeRecursively();
        }
        // Another application, without the creator code, is not Toast.
        writeFile(apps + QStringLiteral("/Other.app/Contents/Info.plist"),
                  OVPropertyList::toXml(QVariantMap{{QStringLiteral("CFBundleName"), QStringLiteral("Toast Titanium")}}));
        bundle(QStringLiteral("/Toast 6 Titanium é/Toast Titanium.app"), "Toast Titanium", "6.0.1");
        const OVToast::Detection toast = OVToast::detect({apps});
        QVERIFY(toast.installed);
        // Only %20 is unescaped; é stays as its escape.
        QCOMPARE(toast.fullPath, apps + QStringLiteral("/Toast 6 Titanium %C3%A9/Toast Titanium.app/"));
        QDir(apps).removeRecursively();
    }

    void paneChoosesFoldersAndEnablesBackup()
    {
        QVERIFY(qEnvironmentVariableIsSet("OV_IN_SANDBOX"));
        OVSettingsDomain::remove();
        QFile::remove(QStringLiteral("/Library/Application Support/Orvane/BackupItems.plist"));
        OVOrvanePref pane(nullptr, {});
        pane.show();
        pane.findChild<QToolButton *>(QStringLiteral("lockButton"))->click();
        QTRY_VERIFY_WITH_TIMEOUT(pane.isAuthorized(), 10000);
        auto *table = pane.findChild<QTableView *>(QStringLiteral("tableView"));
        auto *backup = pane.findChild<QPushButton *>(QStringLiteral("backupButton"));
        QVERIFY(!backup->isEnabled());
        table->clearSelection();
        pane.openPanelDidEnd(1, QStringLiteral("/srv"));
        QVERIFY(pane.backupItems()->item(0).sourcePath().isNull());
        table->selectRow(0);
        for (const auto &[tag, folder] : {std::pair<int, const char *>{1, "/root/Documents"}, {2, "/root/Backups"}}) {
            QDir().mkpath(QString::fromLatin1(folder));
            pane.chooseFolder(tag);
            auto *panel = pane.findChild<QFileDialog *>(QStringLiteral("folderPanel"));
            QVERIFY(panel && panel->isVisible());
            panel->setDirectory(QString::fromLatin1(folder));
            panel->selectFile(QString::fromLatin1(folder));
            QMetaObject::invokeMethod(panel, "accept");
            QTRY_VERIFY(!pane.findChild<QFileDialog *>(QStringLiteral("folderPanel")));
        }
        const OVBackupItem &item = pane.backupItems()->item(0);
        QCOMPARE(item.sourcePath(), QStringLiteral("/root/Documents"));
        QCOMPARE(item.destPath(), QStringLiteral("/root/Backups"));
        // A complete, ticked, manual item: the backup can be started.
        QVERIFY(backup->isEnabled());
        pane.chooseFolder(1);
        pane.findChild<QFileDialog *>(QStringLiteral("folderPanel"))->reject();
        QTRY_VERIFY(!pane.findChild<QFileDialog *>(QStringLiteral("folderPanel")));
        QCOMPARE(pane.backupItems()->item(0).sourcePath(), QStringLiteral("/root/Documents"));
        QVERIFY(pane.backupItems()->setData(pane.backupItems()->index(0, 0), Qt::Unchecked, Qt::CheckStateRole));
        QVERIFY(!backup->isEnabled());
        pane.addBackupItem(&pane);
        table->clearSelection();
        pane.deleteBackupItem(&pane);
        QCOMPARE(pane.backupItems()->rowCount(), 2);
    }
};

QTEST_MAIN(TestTable)
#include "test_table.moc"
