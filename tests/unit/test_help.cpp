// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#include "OVCredits.h"
#include "OVHelpSheet.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QImage>
#include <QScrollBar>
#include <QSet>
#include <QStandardPaths>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTextBlock>
#include <QTextBrowser>
#include <QTimer>

namespace
{
const QString HelpFolder = QStringLiteral(OV_SOURCE_DIR "/resources/help");
const QString HelpPage = HelpFolder + QStringLiteral("/help.html");

QUrl withoutFragment(const QUrl &url)
{
    return url.adjusted(QUrl::RemoveFragment);
}

// Credits of exactly `length` characters, in words so that they wrap.
QString writeCredits(const QTemporaryDir &dir, int length)
{
    QString text;
    while (text.size() < length) {
        text += QStringLiteral("credit ");
    }
    text.truncate(length);
    text[length - 1] = QLatin1Char('x');
    const QString path = dir.filePath(QStringLiteral("Credits.html"));
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write(QStringLiteral("<html><body><p>%1</p></body></html>").arg(text).toUtf8());
    return path;
}

// An options sheet's tabs in small, the credits on the last one, loaded.
struct Credits {
    QTemporaryDir dir;
    QTabWidget tabView;
    QTextBrowser *view;
    OVCredits credits;
    explicit Credits(int length)
        : view(addTabs(tabView))
        , credits(view, &tabView, writeCredits(dir, length))
    {
        tabView.show();
        credits.loadCredits();
    }
    static QTextBrowser *addTabs(QTabWidget &tabView)
    {
        tabView.addTab(new QWidget, QStringLiteral("General"));
        tabView.addTab(new QWidget, QStringLiteral("Notices"));
        auto *about = new QWidget;
        auto *view = new QTextBrowser(about);
        view->setGeometry(0, 0, 200, 80);
        tabView.addTab(about, QStringLiteral("About"));
        tabView.resize(240, 160);
        return view;
    }
};
}

class TestHelp : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
    }

    // The manual as the sheet shows it: every page reached from the help
    // page loads, every image decodes, every link and anchor lands, and no
    // page or picture in the folder is left unreachable.
    void everyPageLinkAndImageResolves()
    {
        OVHelpSheet sheet(HelpPage);
        QTextBrowser *view = sheet.helpWebView();
        QSet<QString> pages;
        QSet<QString> images;
        QHash<QString, QSet<QString>> anchors;
        QList<std::pair<QUrl, QString>> fragments; // (link, page it is on)
        QList<QUrl> queue{QUrl::fromLocalFile(HelpPage)};
        while (!queue.isEmpty()) {
            const QUrl page = queue.takeFirst();
            const QString path = QFileInfo(page.toLocalFile()).canonicalFilePath();
            QVERIFY2(!path.isEmpty(), qPrintable(page.toString() + QStringLiteral(" does not exist")));
            if (pages.contains(path)) {
                continue;
            }
            pages.insert(path);
            view->setSource(page);
            QTextDocument *document = view->document();
            QVERIFY2(!document->toPlainText().trimmed().isEmpty(), qPrintable(path + QStringLiteral(" shows nothing")));
            QVERIFY2(!document->metaInformation(QTextDocument::DocumentTitle).isEmpty(), qPrintable(path + QStringLiteral(" has no title")));
            for (QTextBlock block = document->begin(); block.isValid(); block = block.next()) {
                for (auto it = block.begin(); !it.atEnd(); ++it) {
                    const QTextCharFormat format = it.fragment().charFormat();
                    for (const QString &name : format.anchorNames()) {
                        anchors[path].insert(name);
                    }
                    if (format.isImageFormat()) {
                        const QUrl image = page.resolved(QUrl(format.toImageFormat().name()));
                        QVERIFY2(image.isLocalFile(), qPrintable(image.toString()));
                        QVERIFY2(!QImage(image.toLocalFile()).isNull(), qPrintable(image.toString() + QStringLiteral(" does not load")));
                        images.insert(QFileInfo(image.toLocalFile()).canonicalFilePath());
                    }
                    if (format.isAnchor() && !format.anchorHref().isEmpty()) {
                        const QUrl target = page.resolved(QUrl(format.anchorHref()));
                        if (!target.isLocalFile()) {
                            // Web links leave the sheet; they must at least be whole addresses.
                            QVERIFY2(target.scheme() == QLatin1String("https") && !target.host().isEmpty(), qPrintable(target.toString()));
                            continue;
                        }
                        QVERIFY2(target.path().endsWith(QLatin1String(".html")), qPrintable(path + QStringLiteral(" links to ") + target.toString()));
                        queue.append(withoutFragment(target));
                        if (target.hasFragment()) {
                            fragments.append({target, path});
                        }
                    }
                }
            }
        }
        for (const auto &[link, from] : std::as_const(fragments)) {
            const QString target = QFileInfo(link.toLocalFile()).canonicalFilePath();
            QVERIFY2(anchors.value(target).contains(link.fragment()), qPrintable(from + QStringLiteral(": no anchor for ") + link.toString()));
        }

        const QDir folder(HelpFolder);
        for (const QFileInfo &file : folder.entryInfoList({QStringLiteral("*.html")}, QDir::Files)) {
            QVERIFY2(pages.contains(file.canonicalFilePath()), qPrintable(file.fileName() + QStringLiteral(" is linked from nowhere")));
        }
        QDirIterator pictures(HelpFolder, {QStringLiteral("*.png")}, QDir::Files, QDirIterator::Subdirectories);
        int pictureCount = 0;
        while (pictures.hasNext()) {
            const QString picture = QFileInfo(pictures.next()).canonicalFilePath();
            ++pictureCount;
            QVERIFY2(images.contains(picture), qPrintable(picture + QStringLiteral(" is shown nowhere")));
        }
        QVERIFY(pages.size() > 1);
        QVERIFY(pictureCount > 0);
    }

    // A page followed inside the help, then the sheet closed and opened
    // again: the help page shows, from its top, with no way back.
    void followedPageIsForgottenOnClose()
    {
        OVHelpSheet sheet(HelpPage);
        QTextBrowser *view = sheet.helpWebView();
        sheet.loadHelpPage();
        sheet.viewHelp();
        QVERIFY(sheet.isVisible());
        QCOMPARE(view->source(), sheet.helpPageUrl());

        view->verticalScrollBar()->setValue(view->verticalScrollBar()->maximum());
        QVERIFY(view->verticalScrollBar()->value() > 0);
        // Follow the help page's first link as a reader would: Tab to it, Return.
        view->setFocus();
        QTest::keyClick(view, Qt::Key_Tab);
        QTest::keyClick(view->viewport(), Qt::Key_Return);
        const QUrl followed = withoutFragment(view->source());
        QVERIFY2(followed.isLocalFile() && followed != sheet.helpPageUrl(), qPrintable(followed.toString()));
        QVERIFY(view->isBackwardAvailable());

        sheet.hideHelpSheet();
        QVERIFY(!sheet.isVisible());
        QCOMPARE(view->source(), sheet.helpPageUrl());
        QVERIFY(!view->isBackwardAvailable());

        sheet.viewHelp();
        QCOMPARE(view->source(), sheet.helpPageUrl());
        QCOMPARE(view->verticalScrollBar()->value(), 0);
        QVERIFY(!view->isBackwardAvailable());

        // Scrolled down on the help page itself: back at the top too.
        view->verticalScrollBar()->setValue(view->verticalScrollBar()->maximum());
        QTest::keyClick(&sheet, Qt::Key_Escape);
        QVERIFY(!sheet.isVisible());
        sheet.viewHelp();
        QCOMPARE(view->verticalScrollBar()->value(), 0);
        sheet.hideHelpSheet();
    }

    void sheetRemembersItsFrame()
    {
        {
            OVHelpSheet sheet(HelpPage);
            sheet.viewHelp();
            sheet.resize(610, 470);
            sheet.hideHelpSheet();
        }
        OVHelpSheet again(HelpPage);
        again.viewHelp();
        QCOMPARE(again.size(), QSize(610, 470));
        again.hideHelpSheet();
    }

    void missingPageSaysWhereItWasLookedFor()
    {
        const QString missing = QStringLiteral("/nonexistent/help.html");
        OVHelpSheet sheet(missing);
        sheet.loadHelpPage();
        QVERIFY(sheet.helpWebView()->toPlainText().contains(missing));
    }

    void creditsLoadBlackOnWhiteAtTheirStart()
    {
        Credits c(1000);
        c.view->verticalScrollBar()->setValue(30);
        c.credits.loadCredits();
        QCOMPARE(c.view->toPlainText().size(), 1000);
        QCOMPARE(c.view->palette().color(QPalette::Text), QColor(Qt::black));
        QCOMPARE(c.view->palette().color(QPalette::Base), QColor(Qt::white));
        QCOMPARE(c.view->textCursor().position(), 0);
        QCOMPARE(c.view->verticalScrollBar()->value(), 0);
        QVERIFY(!c.credits.scrollTimer());

        OVCredits missing(c.view, &c.tabView, c.dir.filePath(QStringLiteral("none.html")));
        missing.loadCredits();
        QVERIFY(c.view->toPlainText().contains(c.dir.filePath(QStringLiteral("none.html"))));
    }

    // 1,000 characters: the position runs 0, 1, ..., 850 and back to 0; the
    // view follows it as far as the text reaches. 100 never loop.
    void creditsLoopAtTheirLengthLess150()
    {
        Credits c(1000);
        c.tabView.setCurrentIndex(2);
        QVERIFY(c.credits.scrollTimer());
        QVERIFY(c.credits.scrollTimer()->isActive());
        QScrollBar *bar = c.view->verticalScrollBar();
        QVERIFY(bar->maximum() > 20);
        for (int step = 0; step < 852; ++step) {
            const int position = int(c.credits.currentPosition());
            QCOMPARE(position, step == 851 ? 0 : step);
            c.credits.scrollCredits();
            QCOMPARE(bar->value(), qMin(position, bar->maximum()));
        }

        Credits shortOnes(100);
        shortOnes.tabView.setCurrentIndex(2);
        for (int step = 0; step < 2000; ++step) {
            shortOnes.credits.scrollCredits();
        }
        QCOMPARE(shortOnes.credits.currentPosition(), 2000.0f);
    }

    // Only the credits tab scrolls; leaving it, or closing the sheet, puts
    // the text back at its top, and coming back starts from there.
    void creditsRunOnlyOnTheirTabAndRestartAtTheTop()
    {
        Credits c(1000);
        QScrollBar *bar = c.view->verticalScrollBar();
        c.tabView.setCurrentIndex(1);
        QVERIFY(!c.credits.scrollTimer());
        c.tabView.setCurrentIndex(2);
        // The timer itself moves the text.
        QTRY_VERIFY_WITH_TIMEOUT(c.credits.currentPosition() >= 3.0f, 2000);
        QVERIFY(bar->value() > 0);

        c.tabView.setCurrentIndex(0);
        QVERIFY(!c.credits.scrollTimer());
        QCOMPARE(bar->value(), 0);
        const float stopped = c.credits.currentPosition();
        QTest::qWait(200);
        QCOMPARE(c.credits.currentPosition(), stopped);

        c.tabView.setCurrentIndex(2);
        QCOMPARE(c.credits.currentPosition(), 0.0f);
        c.credits.scrollCredits();
        QCOMPARE(bar->value(), 0);
        QVERIFY(c.credits.scrollTimer());

        c.credits.stopScrolling(); // the options sheet closed
        QVERIFY(!c.credits.scrollTimer());
        QCOMPARE(bar->value(), 0);
    }
};

QTEST_MAIN(TestHelp)
#include "test_help.moc"
