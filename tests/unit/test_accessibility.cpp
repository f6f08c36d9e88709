// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// What a screen reader learns through Qt's accessibility: every control of
// the options sheet has a name (a field's is its label's), and each control,
// a tick box of the items table too, reports the state it is drawn in. Any
// user, offscreen.
#include "OVBackupItemModel.h"
#include "OVOptionsSheet.h"
#include "OVSafetyNet.h"
#include "OVSettings.h"
#include "OVTableView.h"

#include <QAbstractButton>
#include <QAbstractSlider>
#include <QAccessible>
#include <QComboBox>
#include <QLineEdit>
#include <QSpinBox>
#include <QTest>
#include <QTextBrowser>

class TestAccessibility : public QObject
{
    Q_OBJECT

    static QAccessibleInterface *reported(QObject *object)
    {
        return QAccessible::queryAccessibleInterface(object);
    }

private Q_SLOTS:
    void everyControlOfTheOptionsHasItsName()
    {
        OVSettings settings;
        OVSafetyNet safetyNet(&settings);
        OVOptionsSheet sheet(&settings, &safetyNet);
        sheet.soundPopUp()->addItem(settings.sound());
        sheet.load();
        int controls = 0;
        const auto widgets = sheet.findChildren<QWidget *>();
        for (QWidget *widget : widgets) {
            const bool control = qobject_cast<QAbstractButton *>(widget) || qobject_cast<QComboBox *>(widget) || qobject_cast<QLineEdit *>(widget)
                || qobject_cast<QAbstractSpinBox *>(widget) || qobject_cast<QAbstractSlider *>(widget) || qobject_cast<QTextBrowser *>(widget);
            // The parts Qt puts inside a control (a spin box's line edit, a
            // tab bar's scroll buttons) speak through it.
            if (!control || widget->objectName().isEmpty() || widget->objectName().startsWith(QLatin1String("qt_"))) {
                continue;
            }
            ++controls;
            QAccessibleInterface *iface = reported(widget);
            QVERIFY2(!iface->text(QAccessible::Name).trimmed().isEmpty(), qPrintable(widget->objectName()));
            QVERIFY2(iface->state().disabled == !widget->isEnabled(), qPrintable(widget->objectName()));
        }
        QVERIFY2(controls >= 50, qPrintable(QString::number(controls)));

        // The remote server's fields are named by their labels.
        const QStringList fields{QStringLiteral("kcfg_RemoteServerAddress"),
                                 QStringLiteral("kcfg_RemoteUserName"),
                                 QStringLiteral("passwordField"),
                                 QStringLiteral("kcfg_RemoteVolumeName")};
        const QStringList labels{QStringLiteral("Server address:"), QStringLiteral("User name:"), QStringLiteral("Password:"), QStringLiteral("Volume:")};
        for (int i = 0; i < fields.size(); ++i) {
            QCOMPARE(reported(sheet.findChild<QLineEdit *>(fields.at(i)))->text(QAccessible::Name), labels.at(i));
        }
        // Disabled while auto-connect is off, and said so.
        QVERIFY(reported(sheet.findChild<QLineEdit *>(fields.first()))->state().disabled);
    }

    void aTickBoxThatCannotBeUsedIsReportedDisabled()
    {
        OVBackupItemModel model;
        model.setEditable(true);
        model.createNewBackupItem(); // no source, no destination
        model.createNewBackupItem();
        model.setFolder(1, OVBackupItemModel::ChooseSourceTag, QStringLiteral("/home/ann"), QStringLiteral("ann"));
        model.setFolder(1, OVBackupItemModel::ChooseDestinationTag, QStringLiteral("/media/ann/Disk"), QStringLiteral("Disk"));
        OVTableView view;
        view.setModel(&model);
        view.resize(600, 200);
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));

        QAccessibleTableInterface *table = reported(&view)->tableInterface();
        QVERIFY(table);
        QAccessibleInterface *unusable = table->cellAt(0, OVBackupItemModel::CheckColumn);
        QAccessibleInterface *usable = table->cellAt(1, OVBackupItemModel::CheckColumn);
        QVERIFY(unusable && usable);
        QVERIFY(unusable->state().checkable && unusable->state().disabled);
        QVERIFY(usable->state().checkable && !usable->state().disabled);
        QVERIFY(unusable->actionInterface()->actionNames().isEmpty());

        // Toggled through assistive technology as by a click.
        const bool before = model.item(1).checkColumn();
        usable->actionInterface()->doAction(QAccessibleActionInterface::toggleAction());
        QCOMPARE(model.item(1).checkColumn(), !before);
        QCOMPARE(table->cellAt(1, OVBackupItemModel::CheckColumn)->state().checked, !before);

        // Locked: nothing in the table can be used.
        model.setEditable(false);
        QVERIFY(table->cellAt(1, OVBackupItemModel::CheckColumn)->state().disabled);
        // Rows that come and go are reported as they are.
        model.createNewBackupItem();
        QCOMPARE(table->rowCount(), 3);
        QVERIFY(table->cellAt(2, OVBackupItemModel::CheckColumn)->state().disabled);
    }
};

QTEST_MAIN(TestAccessibility)
#include "test_accessibility.moc"
