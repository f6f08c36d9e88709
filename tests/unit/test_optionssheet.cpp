// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// The settings, declared once, and the options sheet bound to them by name.
#include "OVOptionsSheet.h"
#include "OVSafetyNet.h"
#include "OVScheduleTables.h"
#include "OVSettings.h"
#include "OVSettingsBinding.h"
#include <QAbstractButton>
#include <QAbstractSlider>
#include <QAccessible>
#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QTemporaryDir>
#include <QTest>
#include <QTextBrowser>

class TestOptionsSheet : public QObject
{
    Q_OBJECT

    // The sheet on settings of its own, its sound menu holding the default.
    struct Sheet {
        OVSettings settings;
        OVSafetyNet safetyNet{&settings};
        OVOptionsSheet sheet{&settings, &safetyNet};
        Sheet()
        {
            sheet.soundPopUp()->addItem(settings.sound());
        }
    };

    // A value of each setting's type that no other setting holds.
    static QVariant distinct(const OVSettings::Item &item, int n)
    {
        const int span = item.maximum - item.minimum;
        // A number off the default, inside the range.
        return item.kind == OVSettings::Kind::Flag ? QVariant(!item.defaultValue.toBool())
            : item.kind == OVSettings::Kind::Text  ? QVariant(QStringLiteral("text %1").arg(n))
                                                   : QVariant(item.minimum + (item.defaultValue.toInt() - item.minimum + 1 + n % qMax(1, span)) % (span + 1));
    }

private Q_SLOTS:
    void everyKeyComesBackFromItsOwnControl()
    {
        Sheet t;
        int n = 0;
        for (const OVSettings::Item &item : OVSettings::items()) {
            t.settings.setValue(item.key, distinct(item, n++));
        }
        t.sheet.soundPopUp()->addItem(t.settings.sound());
        const OVSettings held = t.settings;
        t.sheet.load();
        // Read back into a fresh object: a key bound to another's control, or not bound at all, comes back as something else.
        OVSettings readBack;
        OVSettingsBinding binding(&t.sheet, &readBack);
        binding.updateSettings();
        QStringList bound = binding.keys();
        QStringList unbound;
        for (const OVSettings::Item &item : OVSettings::items()) {
            if (bound.removeAll(item.key)) {
                QVERIFY2(readBack.value(item.key) == held.value(item.key), qPrintable(item.key));
            } else {
                unbound.append(item.key);
            }
        }
        // Every key has its control, but the pane's own four.
        QCOMPARE(bound, QStringList());
        QCOMPARE(unbound.join(QLatin1Char(' ')), QStringLiteral("Master SafetyNetFolder ShowOnlyErrors Locked"));
        QVERIFY(!binding.hasChanged());
    }

    // The interface file's states, untouched, read as settings; every menu as long as its range.
    void theDesignIsTheDefaults()
    {
        Sheet t;
        OVSettings design;
        OVSettingsBinding(&t.sheet, &design).updateSettings();
        for (const OVSettings::Item &item : OVSettings::items()) {
            QVERIFY2(design.value(item.key) == item.defaultValue, qPrintable(item.key));
        }
        OVSettingsBinding binding(&t.sheet, &t.settings);
        for (const QString &key : binding.keys()) {
            const OVSettings::Item *item = OVSettings::item(key);
            if (auto *menu = qobject_cast<QComboBox *>(binding.widget(key)); menu && item->kind == OVSettings::Kind::Index) {
                QVERIFY2(menu->count() == item->maximum + 1, qPrintable(key));
            } else if (auto *count = qobject_cast<QSpinBox *>(binding.widget(key))) {
                QVERIFY2(count->minimum() == item->minimum && count->maximum() == item->maximum, qPrintable(key));
            }
        }
    }

    void aStoredDomainIsReadAsTheTableSays_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<QVariant>("read");
        const auto row = [](const char *name, const char *key, const QVariant &stored, const QVariant &read) {
            QTest::newRow(name) << QString::fromLatin1(key) << stored << read;
        };
        row("absent count", "MaxArchives", QVariant(), 3);
        row("hour beyond the menu", "DailyHour", 12, 2);
        row("negative hour", "MonthlyHour", -3, 4);
        row("text for an index", "DailyMinute", QStringLiteral("not a number"), 0);
        row("count above", "MaxArchives", 100000, 99);
        row("count below", "TimeValue", -5, 1);
        row("text for a flag", "SafetyNet", QStringLiteral("false"), false);
        row("number for a text", "SafetyNetFolder", 42, QStringLiteral("42"));
        row("empty folder", "SafetyNetFolder", QString(), OVSettings::defaultSafetyNetFolder());
    }
    void aStoredDomainIsReadAsTheTableSays()
    {
        QFETCH(QString, key);
        QFETCH(QVariant, stored);
        OVSettings settings;
        settings.setDomain(stored.isValid() ? QVariantMap{{key, stored}} : QVariantMap{});
        QTEST(settings.value(key), "read");
        // Written back with exactly the table's keys, typed.
        const QVariantMap domain = settings.domain();
        QCOMPARE(domain.size(), OVSettings::items().size());
        QCOMPARE(domain.value(key).userType(), settings.value(key).userType());
    }

    // A per-frequency accessor reaches its own frequency's key, "Manually" for the manual runs.
    void perFrequencyAccessorsReachTheirKeys()
    {
        OVSettings settings;
        settings.setDomain({{QStringLiteral("WeeklyMirrorFolders"), true}});
        QVERIFY(settings.mirrorFolders(OVFrequency::Weekly) && !settings.mirrorFolders(OVFrequency::Daily));
        settings.setRepairPermissions(OVFrequency::Manual, true);
        QCOMPARE(settings.domain().value(QStringLiteral("ManuallyRepairPermissions")), QVariant(true));
    }

    // The schedule runs at the times the menus' titles say.
    void menuTitlesAreTheScheduleTimes()
    {
        Sheet t;
        const OVSettingsBinding *binding = t.sheet.binding();
        auto menu = [binding](const QString &key) {
            return qobject_cast<QComboBox *>(binding->widget(key));
        };
        for (const OVFixedPaths::FrequencyFiles &schedule : OVFixedPaths::Scheduled) {
            QComboBox *hours = menu(QString::fromLatin1(schedule.name) + QStringLiteral("Hour"));
            QComboBox *minutes = menu(QString::fromLatin1(schedule.name) + QStringLiteral("Minute"));
            QVERIFY(hours && minutes);
            for (int h = 0; h < hours->count(); ++h) {
                for (int m = 0; m < minutes->count(); ++m) {
                    t.settings.setHour(schedule.frequency, h);
                    t.settings.setMinute(schedule.frequency, m);
                    const auto time = OVScheduleTables::times(t.settings).at[int(schedule.frequency)];
                    // "3" and ":30 PM" is 15:30.
                    const QStringList title = minutes->itemText(m).split(QLatin1Char(' '));
                    const int hour = hours->itemText(h).toInt() % 12 + (title.value(1) == QLatin1String("PM") ? 12 : 0);
                    QCOMPARE(time.hour, hour);
                    QCOMPARE(time.minute, title.value(0).mid(1).toInt());
                }
            }
        }
        // cron counts the days of the week from Sunday, as the menu does.
        QCOMPARE(menu(QStringLiteral("WeeklyDay"))->itemText(0), QStringLiteral("Sunday"));
        for (int day = 0; day < menu(QStringLiteral("WeeklyDay"))->count(); ++day) {
            t.settings.setWeeklyDay(day);
            QCOMPARE(OVScheduleTables::times(t.settings).weekday, day);
        }
        for (int day = 0; day < menu(QStringLiteral("DayOfMonth"))->count(); ++day) {
            t.settings.setDayOfMonth(day);
            QCOMPARE(OVScheduleTables::times(t.settings).dayOfMonth, menu(QStringLiteral("DayOfMonth"))->itemText(day).toInt());
        }
    }

    // A click on a governing box enables or disables what it governs.
    void governingBoxesEnableTheirControls_data()
    {
        QTest::addColumn<QString>("box");
        QTest::addColumn<bool>("on");
        QTest::addColumn<QStringList>("controls");
        const auto row = [](const char *name, const char *box, bool on, const char *controls) {
            QTest::newRow(name) << QString::fromLatin1(box) << on << QString::fromLatin1(controls).split(QLatin1Char(' '));
        };
        row("alert off", "kcfg_DisplayAlert", false, "kcfg_AutoDismissAlert kcfg_TimeValue timeValueStepper kcfg_TimeUnit");
        row("dismiss on", "kcfg_AutoDismissAlert", true, "kcfg_TimeValue timeValueStepper kcfg_TimeUnit");
        row("sound off", "kcfg_PlaySound", false, "kcfg_Sound");
        row("connect on", "kcfg_AutoConnect", true, "kcfg_RemoteServerAddress kcfg_RemoteUserName passwordField kcfg_RemoteVolumeName connectButton");
        row("net off", "kcfg_SafetyNet", false, "kcfg_ArchiveItems kcfg_MaxArchives maxArchivesStepper chooseArchiveFolderButton openArchiveFolderButton");
    }
    void governingBoxesEnableTheirControls()
    {
        QFETCH(QString, box);
        QFETCH(bool, on);
        QFETCH(QStringList, controls);
        QTemporaryDir folder;
        Sheet t;
        t.settings.setSafetyNetFolder(folder.path());
        t.settings.setAutoDismissAlert(true);
        t.settings.setValue(box.mid(5), !on);
        t.sheet.load();
        t.sheet.findChild<QCheckBox *>(box)->click();
        for (const QString &control : controls) {
            QVERIFY2(t.sheet.findChild<QWidget *>(control)->isEnabled() == on, qPrintable(control));
        }
        // Opening the Safety Net wants its folder on disk too.
        QVERIFY(folder.remove());
        t.sheet.updatePrefsUI();
        QVERIFY(!t.sheet.findChild<QPushButton *>(QStringLiteral("openArchiveFolderButton"))->isEnabled());
    }

    // Through Qt's accessibility every control has a name (a field's from its label) and reports the state it is drawn in.
    void everyControlOfTheOptionsHasItsName()
    {
        Sheet t;
        t.sheet.load();
        int controls = 0;
        for (QWidget *widget : t.sheet.findChildren<QWidget *>()) {
            const bool control = qobject_cast<QAbstractButton *>(widget) || qobject_cast<QComboBox *>(widget) || qobject_cast<QLineEdit *>(widget)
                || qobject_cast<QAbstractSpinBox *>(widget) || qobject_cast<QAbstractSlider *>(widget) || qobject_cast<QTextBrowser *>(widget);
            // The parts Qt puts inside a control (a spin box's line edit, a tab bar's scroll buttons) speak through it.
            if (!control || widget->objectName().isEmpty() || widget->objectName().startsWith(QLatin1String("qt_"))) {
                continue;
            }
            ++controls;
            QAccessibleInterface *iface = QAccessible::queryAccessibleInterface(widget);
            QVERIFY2(!iface->text(QAccessible::Name).trimmed().isEmpty(), qPrintable(widget->objectName()));
            QVERIFY2(iface->state().disabled == !widget->isEnabled(), qPrintable(widget->objectName()));
        }
        QVERIFY2(controls >= 50, qPrintable(QString::number(controls)));
    }

    void anUnknownSoundSelectsTheBell()
    {
        Sheet t;
        t.sheet.soundPopUp()->addItems({QStringLiteral("Basso"), QStringLiteral("Magic Bell"), QStringLiteral("Glass")});
        t.settings.setSound(QStringLiteral("Glass"));
        t.sheet.load();
        QCOMPARE(t.sheet.soundPopUp()->currentText(), QStringLiteral("Glass"));
        t.settings.setSound(QStringLiteral("No Such Sound"));
        t.sheet.load();
        QCOMPARE(t.sheet.soundPopUp()->currentText(), QStringLiteral("Magic Bell"));
    }
};

QTEST_MAIN(TestOptionsSheet)
#include "test_optionssheet.moc"
