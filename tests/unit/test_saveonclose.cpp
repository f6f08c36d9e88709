// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// When the module saves as its host's window goes: once when it closes (a
// close, then a hide), again after the window comes back, never when it is
// minimised, never for a module that is its own window. Any user: the save
// is counted, no helper runs.
#include "OVSaveOnClose.h"

#include <QTest>
#include <QVBoxLayout>

class TestSaveOnClose : public QObject
{
    Q_OBJECT

    struct Host {
        QWidget window;
        QWidget *module = new QWidget(&window);
        int saves = 0;
        Host()
        {
            (new QVBoxLayout(&window))->addWidget(module);
            new OVSaveOnClose(module, [this] {
                ++saves;
            });
        }
        void show()
        {
            window.show();
            QVERIFY(QTest::qWaitForWindowExposed(&window));
        }
    };

private Q_SLOTS:
    void savesOnceEachTimeTheWindowGoes()
    {
        Host host;
        host.show();
        host.window.close();
        QCOMPARE(host.saves, 1);
        host.show();
        host.window.hide();
        QCOMPARE(host.saves, 2);

        // The desktop hides a minimised window.
        host.show();
        host.window.showMinimized();
        host.window.hide();
        QCOMPARE(host.saves, 2);
    }

    void aModuleThatIsItsOwnWindowHasNoHost()
    {
        QWidget alone;
        int saves = 0;
        new OVSaveOnClose(&alone, [&saves] {
            ++saves;
        });
        alone.show();
        QVERIFY(QTest::qWaitForWindowExposed(&alone));
        alone.close();
        QCOMPARE(saves, 0);
    }
};

QTEST_MAIN(TestSaveOnClose)
#include "test_saveonclose.moc"
