// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
// "Preview…" on a real tree with the installed psync, as an ordinary user, with the item's exclusions and mirror option.
#include "OVPreviewWindow.h"
#include "ovtestfiles.h"
#include <QAbstractItemView>
#include <QProcess>
#include <QSignalSpy>

namespace
{
const QString Root = QStringLiteral("/home/ovpreview");
const QString Source = Root + QStringLiteral("/Projekte");
const QString Destination = QStringLiteral("/Volumes/Backup/Projekte");

// Times on whole seconds, the same for the same age.
const QDateTime Now = QDateTime::fromSecsSinceEpoch(QDateTime::currentSecsSinceEpoch());
const QDateTime MinuteAgo = Now.addSecs(-60), HourAgo = Now.addSecs(-3600);

QMap<QString, QString> recordsOf(const OVPreviewWindow &window)
{
    QMap<QString, QString> records;
    const QAbstractItemModel *model = window.findChild<QAbstractItemView *>(QStringLiteral("recordView"))->model();
    for (int row = 0; row < model->rowCount(); ++row) {
        records.insert(model->index(row, 2).data().toString(), model->index(row, 0).data().toString());
    }
    return records;
}
}

class TestPreview : public QObject
{
    Q_OBJECT
    OVBackupItem m_item;

    bool run(OVPreviewWindow &window)
    {
        QSignalSpy finished(&window, &OVPreviewWindow::finished);
        window.start();
        return finished.wait(60000) && finished.first().first().toBool();
    }

private Q_SLOTS:
    void initTestCase()
    {
        QCOMPARE(geteuid(), uid_t(0));
        QCOMPARE(QProcess::execute(QStringLiteral("useradd"), {QStringLiteral("--create-home"), QStringLiteral("--user-group"), QStringLiteral("ovpreview")}),
                 0);
        writeFile(Source + QStringLiteral("/neu.txt"), "new file", MinuteAgo);
        writeFile(Source + QStringLiteral("/geändert.txt"), "changed since, longer", MinuteAgo);
        writeFile(Source + QStringLiteral("/gleich.txt"), "same", HourAgo);
        writeFile(Source + QStringLiteral("/Tiefe/Ordner/neu 2.bin"), QByteArray(5000, 'x'), MinuteAgo);
        writeFile(Source + QStringLiteral("/build/out.o"), "object", MinuteAgo);
        writeFile(Source + QStringLiteral("/scratch.tmp"), "scratch", MinuteAgo);
        writeFile(Destination + QStringLiteral("/geändert.txt"), "changed", Now.addSecs(-7200));
        writeFile(Destination + QStringLiteral("/gleich.txt"), "same", HourAgo);
        writeFile(Destination + QStringLiteral("/weg.txt"), "gone from the source", HourAgo);
        writeFile(Destination + QStringLiteral("/Alt/alt.txt"), "old folder", HourAgo);
        QCOMPARE(QProcess::execute(QStringLiteral("chown"), {QStringLiteral("-R"), QStringLiteral("ovpreview:"), Root}), 0);
        // Readable by the user, as a backup of the user's files is.
        QCOMPARE(QProcess::execute(QStringLiteral("chmod"), {QStringLiteral("-R"), QStringLiteral("a+rX"), QStringLiteral("/Volumes/Backup")}), 0);
        m_item.setCheckColumn(true);
        m_item.setSourcePath(Source);
        m_item.setDestPath(Destination);
        m_item.setExclusions({QStringLiteral("*.tmp"), Source + QStringLiteral("/build")});
        QVERIFY(becomeUser("ovpreview", Root));
    }

    void whatTheNextRunWouldDo()
    {
        const QStringList before = tree(Destination);
        for (const bool mirror : {false, true}) {
            OVPreview::Options options;
            options.mirror = mirror;
            OVPreviewWindow window(m_item, options);
            window.show();
            QVERIFY2(run(window), qPrintable(window.note()));
            // Neither the unchanged file nor what the item leaves out (*.tmp, build).
            QMap<QString, QString> expected{{QStringLiteral("neu.txt"), QStringLiteral("Copy")},
                                            {QStringLiteral("geändert.txt"), QStringLiteral("Replace")},
                                            {QStringLiteral("Tiefe"), QStringLiteral("Copy")},
                                            {QStringLiteral("Tiefe/Ordner"), QStringLiteral("Copy")},
                                            {QStringLiteral("Tiefe/Ordner/neu 2.bin"), QStringLiteral("Copy")}};
            if (mirror) {
                for (const char *gone : {"weg.txt", "Alt", "Alt/alt.txt"}) {
                    expected.insert(QString::fromUtf8(gone), QStringLiteral("Delete"));
                }
            }
            QCOMPARE(recordsOf(window), expected);
            const OVPreview &preview = window.preview();
            QCOMPARE(preview.bytes(OVPreview::Replace), qint64(21));
            QVERIFY(preview.bytes(OVPreview::Copy) >= 5008);
            QCOMPARE(preview.count(OVPreview::Delete) > 0, mirror);
            QCOMPARE(preview.unreadable(), 0);
            QVERIFY2(window.note().isEmpty(), qPrintable(window.note()));
        }
        QCOMPARE(tree(Destination), before);
        // A folder the user may not read: said, not hidden.
        QVERIFY(QDir().mkpath(Source + QStringLiteral("/Geheim")));
        QVERIFY(QFile::setPermissions(Source + QStringLiteral("/Geheim"), {}));
        OVPreviewWindow window(m_item, OVPreview::Options());
        run(window);
        QVERIFY2(window.note().contains(QStringLiteral("could not be read")), qPrintable(window.note()));
        QVERIFY(window.recordCount() > 0);
        QVERIFY(QFile::setPermissions(Source + QStringLiteral("/Geheim"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    }
};

QTEST_MAIN(TestPreview)
#include "test_preview.moc"
