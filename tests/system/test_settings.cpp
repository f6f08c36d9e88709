// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// The options dialog's Cancel, anacron's hold on the times and the Safety Net
// folder, run in the sandbox with the installed bundle. (Every setting from
// its control and back, typed with the table's keys: test_optionssheet; the
// options' OK storing them: test_leave_module.)
#include "OVOptionsSheet.h"
#include "OVOrvanePref.h"
#include "OVSafetyNet.h"
#include "OVSettingsDomain.h"
#include "ovsheetchild.h"
#include "ovtestfiles.h"

#include <QDesktopServices>

class TestSettings : public QObject
{
    Q_OBJECT

    QList<QUrl> m_opened;

public Q_SLOTS:
    void openUrl(const QUrl &url)
    {
        m_opened.append(url);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(qEnvironmentVariableIsSet("OV_IN_SANDBOX"), "runs only inside tests/sandbox/ov-sandbox");
        QDesktopServices::setUrlHandler(QStringLiteral("file"), this, "openUrl");
        QDir().mkpath(QDir::homePath() + QStringLiteral("/Library/Sounds"));
    }

    void init()
    {
        OVSettingsDomain::remove();
        QDir(QDir::homePath() + QStringLiteral("/Documents")).removeRecursively();
        QDir().mkpath(QDir::homePath() + QStringLiteral("/Documents"));
    }

    void cancelThrowsEditsAway()
    {
        OVOrvanePref pane(nullptr, {});
        OVOptionsSheet *ui = pane.optionsSheet();
        pane.showOptions(nullptr);
        UI(ui, kcfg_MaxArchives)->setValue(9);
        pane.hideOptions(UI(ui, okButton));
        const QByteArray stored = readFile(OVSettingsDomain::path());
        QVERIFY(!stored.isEmpty());

        pane.showOptions(nullptr);
        UI(ui, kcfg_MaxArchives)->setValue(20);
        UI(ui, kcfg_WaitUntilAway)->setChecked(true);
        UI(ui, kcfg_RemoteServerAddress)->setText(QStringLiteral("afp://elsewhere"));
        pane.hideOptions(UI(ui, cancelButton));
        QCOMPARE(readFile(OVSettingsDomain::path()), stored);
        QCOMPARE(UI(ui, kcfg_MaxArchives)->value(), 9);
        QVERIFY(!UI(ui, kcfg_WaitUntilAway)->isChecked());
        QVERIFY(UI(ui, kcfg_RemoteServerAddress)->text().isEmpty());

        // Escape counts as Cancel.
        pane.showOptions(nullptr);
        UI(ui, kcfg_MaxArchives)->setValue(30);
        QTest::keyClick(pane.optionsSheet(), Qt::Key_Escape);
        QVERIFY(!pane.optionsSheet()->isVisible());
        QCOMPARE(UI(ui, kcfg_MaxArchives)->value(), 9);
    }

    void anacronTakesTheTimes()
    {
        QVERIFY(OVSettingsDomain::replace({{QStringLiteral("UseAnacron"), true}}));
        QFile::remove(QStringLiteral("/etc/anacrontab"));
        OVOrvanePref pane(nullptr, {});
        OVOptionsSheet *ui = pane.optionsSheet();
        pane.showOptions(nullptr);
        QVERIFY(UI(ui, kcfg_DailyHour)->isEnabled() && UI(ui, kcfg_DayOfMonth)->isEnabled());
        QVERIFY(UI(ui, anacronTextField)->text().isEmpty());
        pane.hideOptions(UI(ui, cancelButton));

        writeFile(QStringLiteral("/etc/anacrontab"), QByteArray());
        pane.showOptions(nullptr);
        QVERIFY(!UI(ui, kcfg_WeeklyMinute)->isEnabled() && !UI(ui, kcfg_DayOfMonth)->isEnabled());
        QVERIFY(UI(ui, kcfg_ArchiveItems)->isEnabled());
        QVERIFY(!UI(ui, anacronTextField)->text().isEmpty());
        pane.hideOptions(UI(ui, okButton));
        QVERIFY(OVSettingsDomain::read()->value(QStringLiteral("UseAnacron")).toBool());
        QFile::remove(QStringLiteral("/etc/anacrontab"));
    }

    void safetyNetFolder()
    {
        QCOMPARE(OVSafetyNet::folderForChoice(QStringLiteral("/Volumes/Backup")), QStringLiteral("/Volumes/Backup/Safety Net Archives"));
        QCOMPARE(OVSafetyNet::folderForChoice(QStringLiteral("/Volumes/Backup/Safety Net Archives")), QStringLiteral("/Volumes/Backup/Safety Net Archives"));
        QCOMPARE(OVSafetyNet::folderForChoice(QStringLiteral("/media/safety net archives")), QStringLiteral("/media/safety net archives/Safety Net Archives"));
        QCOMPARE(OVSafetyNet::folderForChoice(QStringLiteral("/")), QStringLiteral("/Safety Net Archives"));

        // Made at start-up where its parent exists, never with its parent.
        const QString fallback = OVSafetyNet::defaultFolder();
        {
            OVOrvanePref pane(nullptr, {});
            QVERIFY(QFileInfo(fallback).isDir());
        }
        QVERIFY(QDir(fallback).removeRecursively());
        const QString elsewhere = QDir::homePath() + QStringLiteral("/Missing/Safety Net Archives");
        QVERIFY(OVSettingsDomain::replace({{QStringLiteral("SafetyNetFolder"), elsewhere}}));
        {
            OVOrvanePref pane(nullptr, {});
            QVERIFY(!QFileInfo::exists(elsewhere));
            QVERIFY(!QFileInfo::exists(fallback));
            QVERIFY(!UI(pane.optionsSheet(), openArchiveFolderButton)->isEnabled());
        }

        // Opening makes the folder first, then hands it to the file manager.
        QDir().mkpath(QFileInfo(elsewhere).absolutePath());
        OVOrvanePref pane(nullptr, {});
        QVERIFY(QFileInfo(elsewhere).isDir());
        QDir(elsewhere).removeRecursively();
        m_opened.clear();
        pane.openSafetyNetFolder(nullptr);
        QVERIFY(QFileInfo(elsewhere).isDir());
        QCOMPARE(m_opened, QList<QUrl>{QUrl::fromLocalFile(elsewhere)});
    }
};

QTEST_MAIN(TestSettings)
#include "test_settings.moc"
