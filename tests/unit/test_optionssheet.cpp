// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// The options sheet against the settings table, on its own: each key is
// stored from its own control and restored into it, and absent keys take
// the table's absent values.
#include "OVOptionsSheet.h"
#include "OVSafetyNet.h"
#include "OVSettingsTable.h"

#include <QCheckBox>
#include <QComboBox>
#include <QSpinBox>
#include <QTest>

class TestOptionsSheet : public QObject
{
    Q_OBJECT

    // "DailyHour" is held by "dailyHourPopUp", "SafetyNet" by
    // "useSafetyNetCheck": the control's name follows the key.
    template<typename T>
    static T *control(QObject *sheet, const QString &key, const char *suffix)
    {
        const QString lower = key.left(1).toLower() + key.mid(1);
        for (const QString &name : QStringList{lower + QLatin1String(suffix), QStringLiteral("use") + key + QLatin1String(suffix)}) {
            if (auto *found = sheet->findChild<T *>(name)) {
                return found;
            }
        }
        return nullptr;
    }

private Q_SLOTS:
    void everyKeyComesFromItsOwnControl()
    {
        OVSafetyNet safetyNet;
        OVOptionsSheet sheet(&safetyNet);
        // Every pop-up a different index, every box a different pattern, so
        // a key read from another control shows.
        int n = 0;
        for (QComboBox *popUp : sheet.findChildren<QComboBox *>()) {
            if (popUp->count() > 0) {
                popUp->setCurrentIndex(n++ % popUp->count());
            }
        }
        n = 0;
        for (QCheckBox *check : sheet.findChildren<QCheckBox *>()) {
            check->setChecked(n++ % 3 == 0);
        }
        const QVariantMap values = sheet.values();
        int popUps = 0;
        int checks = 0;
        for (const OVSettingsTable::Setting &setting : OVSettingsTableRange()) {
            const QString key = QString::fromLatin1(setting.key);
            auto *popUp = setting.type == OVSettingsTable::Type::Integer ? control<QComboBox>(&sheet, key, "PopUp") : nullptr;
            if (popUp) {
                QVERIFY2(values.contains(key), setting.key);
                QCOMPARE(values.value(key).toInt(), popUp->currentIndex());
                ++popUps;
            } else if (auto *check = control<QCheckBox>(&sheet, key, "Check")) {
                QVERIFY2(values.value(key).toBool() == check->isChecked(), setting.key);
                ++checks;
            }
        }
        QCOMPARE(values.value(QStringLiteral("ArchiveItems")).toInt(), sheet.findChild<QComboBox *>(QStringLiteral("archivePopUp"))->currentIndex());
        QCOMPARE(popUps, 9);
        QCOMPARE(values.value(QStringLiteral("AutoDismissAlert")).toBool(), sheet.findChild<QCheckBox *>(QStringLiteral("autoDismissCheck"))->isChecked());
        QCOMPARE(checks, 24);

        // And back: a fresh sheet shows what the first one held.
        OVOptionsSheet restored(&safetyNet);
        restored.restore(values);
        QCOMPARE(restored.values(), values);
        // The scripts read the same boxes the store does.
        QCOMPARE(restored.frequencyOptions(OVFrequency::Weekly).mirror, values.value(QStringLiteral("WeeklyMirrorFolders")).toBool());
        QCOMPARE(restored.frequencyOptions(OVFrequency::Manual).repairPermissions, values.value(QStringLiteral("ManuallyRepairPermissions")).toBool());
    }

    void absentKeysTakeTheTableValues()
    {
        OVSafetyNet safetyNet;
        OVOptionsSheet sheet(&safetyNet);
        const int designedHour = sheet.findChild<QComboBox *>(QStringLiteral("dailyHourPopUp"))->currentIndex();
        sheet.restore({{QStringLiteral("WaitUntilAway"), true}, {QStringLiteral("MaxArchives"), QStringLiteral("not a number")}});
        const QVariantMap values = sheet.values();
        QVERIFY(values.value(QStringLiteral("WaitUntilAway")).toBool());
        QVERIFY(values.value(QStringLiteral("SafetyNet")).toBool());
        QVERIFY(values.value(QStringLiteral("DisplayAlert")).toBool());
        QVERIFY(!values.value(QStringLiteral("AutoConnect")).toBool());
        QCOMPARE(values.value(QStringLiteral("MaxArchives")).toInt(), 3);
        QCOMPARE(values.value(QStringLiteral("TimeUnit")).toInt(), 1);
        // Times the store lacks keep the sheet's own.
        QCOMPARE(values.value(QStringLiteral("DailyHour")).toInt(), designedHour);
        // Every key the sheet stores is in the table; the pane adds the rest.
        for (auto it = values.constBegin(); it != values.constEnd(); ++it) {
            QVERIFY2(OVSettingsTable::find(it.key()), qPrintable(it.key()));
        }
        QCOMPARE(values.size() + 4, OVSettingsTable::count());
    }
};

QTEST_MAIN(TestOptionsSheet)
#include "test_optionssheet.moc"
