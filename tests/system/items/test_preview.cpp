// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

// "Preview…" on a real tree with the installed psync, as an ordinary user:
// what the next run would copy, replace and delete, counted and summed,
// with the item's exclusions and its frequency's mirror option; nothing at
// the destination changes; a part the user may not read is said so.

#include "../ovtestfiles.h"
#include "OVPreviewWindow.h"

#include <QAbstractItemView>
#include <QProcess>
#include <QSignalSpy>

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

namespace
{
const QString Root = QStringLiteral("/home/ovpreview");
const QString Source = Root + QStringLiteral("/Projekte");
const QString Destination = QStringLiteral("/Volumes/Backup/Projekte");

// Times on whole seconds, the same for the same age.
const QDateTime Now = QDateTime::fromSecsSinceEpoch(QDateTime::currentSecsSinceEpoch());

void put(const QString &path, const QByteArray &content, qint64 secondsAgo = 3600)
{
    writeFile(path, content);
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadWrite) && file.setFileTime(Now.addSecs(-secondsAgo), QFileDevice::FileModificationTime));
}

QMap<QString, QString> recordsOf(const OVPreviewWindow &window)
{
    QMap<QString, QString> records;
    auto *view = window.findChild<QAbstractItemView *>(QStringLiteral("recordView"));
    const QAbstractItemModel *model = view->model();
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
    // As root: the user, a source and a backup of it from earlier.
    void initTestCase()
    {
        QCOMPARE(geteuid(), uid_t(0));
        QCOMPARE(QProcess::execute(QStringLiteral("useradd"), {QStringLiteral("--create-home"), QStringLiteral("--user-group"), QStringLiteral("ovpreview")}),
                 0);
        const struct passwd *pw = getpwnam("ovpreview");
        QVERIFY(pw);
        put(Source + QStringLiteral("/neu.txt"), "new file", 60);
        put(Source + QStringLiteral("/geändert.txt"), "changed since, longer", 60);
        put(Source + QStringLiteral("/gleich.txt"), "same");
        put(Source + QStringLiteral("/Tiefe/Ordner/neu 2.bin"), QByteArray(5000, 'x'), 60);
        put(Source + QStringLiteral("/build/out.o"), "object", 60);
        put(Source + QStringLiteral("/scratch.tmp"), "scratch", 60);
        put(Destination + QStringLiteral("/geändert.txt"), "changed", 7200);
        put(Destination + QStringLiteral("/gleich.txt"), "same");
        put(Destination + QStringLiteral("/weg.txt"), "gone from the source");
        put(Destination + QStringLiteral("/Alt/alt.txt"), "old folder");
        QCOMPARE(QProcess::execute(QStringLiteral("chown"), {QStringLiteral("-R"), QStringLiteral("ovpreview:"), Root}), 0);
        // Readable by the user, as a backup of the user's files is.
        QCOMPARE(QProcess::execute(QStringLiteral("chmod"), {QStringLiteral("-R"), QStringLiteral("a+rX"), QStringLiteral("/Volumes/Backup")}), 0);

        m_item.setCheckColumn(true);
        m_item.setSourcePath(Source);
        m_item.setDestPath(Destination);
        m_item.setExclusions({QStringLiteral("*.tmp"), Source + QStringLiteral("/build")});

        QVERIFY(setgroups(0, nullptr) == 0);
        QVERIFY(setresgid(pw->pw_gid, pw->pw_gid, pw->pw_gid) == 0);
        QVERIFY(setresuid(pw->pw_uid, pw->pw_uid, pw->pw_uid) == 0);
        qputenv("HOME", Root.toUtf8());
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
    }

    // A folder the user may not read: said, not hidden.
    void unreadablePartsAreNamed()
    {
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
