// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// When the module saves as it goes: once when the host's window closes, not
// when it is minimised, again after the window comes back, once when System
// Settings drops the module, never for a module that was not shown. A helper
// that fails during the close save is reported before the window goes. Any
// user: the save is counted, no helper runs.
#include "OVSaveOnClose.h"
#include "OVToolLauncher.h"
#include "OVToolReport.h"

#include <KMessageWidget>

#include <QMessageBox>
#include <QTest>
#include <QTimer>
#include <QVBoxLayout>

class TestSaveOnClose : public QObject
{
    Q_OBJECT

    struct Host {
        QWidget window;
        QWidget *module = new QWidget(&window);
        KMessageWidget *message = new KMessageWidget(module);
        OVToolReport *report = new OVToolReport(message, module);
        QList<QEvent::Type> saves;
        std::function<void()> duringSave;
        OVSaveOnClose *watch = new OVSaveOnClose(module, report, [this](QEvent *event) {
            saves.append(event ? event->type() : QEvent::None);
            if (duringSave) {
                duringSave();
            }
        });
        Host()
        {
            (new QVBoxLayout(&window))->addWidget(module);
        }
        void show()
        {
            window.show();
            QVERIFY(QTest::qWaitForWindowExposed(&window));
        }
    };

private Q_SLOTS:
    void closingSavesOnce()
    {
        Host host;
        host.show();
        host.window.close(); // a close, then a hide
        QCOMPARE(host.saves, QList<QEvent::Type>{QEvent::Close});
        host.watch->saveOnLeaving();
        QCOMPARE(host.saves.size(), 1);

        // Back on screen, the next close saves again.
        Host again;
        again.show();
        again.window.close();
        again.show();
        again.window.hide();
        QCOMPARE(again.saves, (QList<QEvent::Type>{QEvent::Close, QEvent::Hide}));
    }

    void minimisingSavesNothing()
    {
        Host host;
        host.show();
        // The desktop hides a minimised window.
        host.window.showMinimized();
        host.window.hide();
        QVERIFY(host.saves.isEmpty());
    }

    void leavingSavesOnce()
    {
        Host host;
        host.show();
        host.watch->saveOnLeaving();
        host.watch->saveOnLeaving();
        QCOMPARE(host.saves, QList<QEvent::Type>{QEvent::None});
        // The module is going: its window's close is no longer its save.
        host.window.close();
        QCOMPARE(host.saves.size(), 1);

        Host unseen;
        unseen.watch->saveOnLeaving();
        QVERIFY(unseen.saves.isEmpty());

        // A module that is its own window has no host to watch.
        QWidget alone;
        auto *message = new KMessageWidget(&alone);
        int count = 0;
        auto *watch = new OVSaveOnClose(&alone, new OVToolReport(message, &alone), [&count](QEvent *) {
            ++count;
        });
        alone.show();
        QVERIFY(QTest::qWaitForWindowExposed(&alone));
        alone.close();
        watch->saveOnLeaving();
        QCOMPARE(count, 0);
    }

    void failureShownBeforeTheWindowGoes()
    {
        Host host;
        host.duringSave = [] {
            Q_EMIT OVToolLauncher::instance()->toolFinished(QStringLiteral("install_scripts"), false, QStringLiteral("disk full"));
        };
        host.show();
        QString shown;
        QTimer::singleShot(100, this, [&shown] {
            if (auto *box = qApp->activeModalWidget() ? qobject_cast<QMessageBox *>(qApp->activeModalWidget()) : nullptr) {
                shown = box->objectName() + QLatin1Char('|') + box->informativeText();
                box->accept();
            }
        });
        host.window.close();
        QVERIFY2(shown.startsWith(QLatin1String("saveFailedAlert|")), qPrintable(shown));
        QVERIFY(shown.contains(QLatin1String("disk full")));
    }
};

QTEST_MAIN(TestSaveOnClose)
#include "test_saveonclose.moc"
