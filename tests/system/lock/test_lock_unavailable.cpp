// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// The lock when nobody can ask for the password: no polkit authority on the
// system bus, or polkitd with no agent in the session. Either way the click
// says why, and the lock stays closed. Run by lock/run_lock_unavailable.sh
// as an administrator who is not root.
#include "OVLocalizedStrings.h"
#include "OVLock.h"
#include "OVOrvanePref.h"
#include "OVSettingsDomain.h"

#include <PolkitQt1/Authority>

#include <QMessageBox>
#include <QPushButton>
#include <QTest>

#include <unistd.h>

class TestLockUnavailable : public QObject
{
    Q_OBJECT

    // Clicks the lock and waits for the alert that says why it stays shut.
    static void clickLockExpecting(const char *explanationKey)
    {
        OVOrvanePref pane(nullptr, {});
        auto *lock = pane.findChild<QAbstractButton *>(QStringLiteral("lockButton"));
        QVERIFY(lock);
        QVERIFY(!pane.isAuthorized());
        lock->click();
        QTRY_VERIFY_WITH_TIMEOUT(pane.findChild<QMessageBox *>(QStringLiteral("lockUnavailableAlert")), 30000);
        auto *alert = pane.findChild<QMessageBox *>(QStringLiteral("lockUnavailableAlert"));
        QCOMPARE(alert->text(), OVLocalized(explanationKey));
        QCOMPARE(alert->windowTitle(), OVLocalized("LockUnavailable"));
        QVERIFY(!alert->text().isEmpty());
        QVERIFY(!pane.isAuthorized());
        QVERIFY(lock->isChecked());
    }

private Q_SLOTS:
    void init()
    {
        QVERIFY2(qEnvironmentVariableIsSet("OV_IN_SANDBOX"), "runs only inside tests/sandbox/ov-sandbox");
        QVERIFY2(getuid() != 0, "polkitd allows root anything: run as an administrator who is not root");
        OVSettingsDomain::remove();
    }

    void answersThatAreNoRefusal()
    {
        using PolkitQt1::Authority;
        QCOMPARE(OVLock::failureFor(Authority::Yes, false), OVLock::Failure::None);
        QCOMPARE(OVLock::failureFor(Authority::No, false), OVLock::Failure::None);
        QCOMPARE(OVLock::failureFor(Authority::Challenge, false), OVLock::Failure::NoAgent);
        QCOMPARE(OVLock::failureFor(Authority::Unknown, false), OVLock::Failure::NoAuthority);
        QCOMPARE(OVLock::failureFor(Authority::No, true), OVLock::Failure::NoAuthority);
    }

    void noAuthority()
    {
        clickLockExpecting("NoPolkitExplanation");
    }

    void noAgent()
    {
        clickLockExpecting("NoPolkitAgentExplanation");
    }
};

QTEST_MAIN(TestLockUnavailable)
#include "test_lock_unavailable.moc"
