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

namespace
{
const QString HelpFolder = QStringLiteral(OV_SOURCE_DIR "/resources/help");
const QString HelpPage = HelpFolder + QStringLiteral("/help.html");

// An options sheet's tabs in small, the credits on the last one: long enough to scroll, in words that wrap.
struct Credits {
    QTemporaryDir dir;
    QTabWidget tabView;
    QWidget *about = new QWidget;
    QTextBrowser *view = new QTextBrowser(about);
    OVCredits credits{view, &tabView, dir.filePath(QStringLiteral("Credits.html"))};
    Credits()
    {
        tabView.addTab(new QWidget, QStringLiteral("General"));
        tabView.addTab(new QWidget, QStringLiteral("Notices"));
        tabView.addTab(about, QStringLiteral("About"));
        tabView.resize(240, 160);
        view->setGeometry(0, 0, 200, 80);
        QFile file(dir.filePath(QStringLiteral("Credits.html")));
        file.open(QIODevice::WriteOnly);
        file.write("<html><body><p>" + QByteArray("credit ").repeated(150) + "</p></body></html>");
        file.close();
        tabView.show();
        credits.loadCredits();
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

    // Every page reached from the help page loads, every image decodes, every link and anchor lands; none is unreachable.
    void everyPageLinkAndImageResolves()
    {
        OVHelpSheet sheet(HelpPage);
        QTextBrowser *view = sheet.helpWebView();
        QSet<QString> pages, images;
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
            const QTextDocument *document = view->document();
            QVERIFY2(!document->toPlainText().trimmed().isEmpty() && !document->metaInformation(QTextDocument::DocumentTitle).isEmpty(),
                     qPrintable(path + QStringLiteral(" shows nothing, or has no title")));
            for (QTextBlock block = document->begin(); block.isValid(); block = block.next()) {
                for (auto it = block.begin(); !it.atEnd(); ++it) {
                    const QTextCharFormat format = it.fragment().charFormat();
                    const QStringList names = format.anchorNames();
                    anchors[path].unite(QSet<QString>(names.begin(), names.end()));
                    if (format.isImageFormat()) {
                        const QUrl image = page.resolved(QUrl(format.toImageFormat().name()));
                        QVERIFY2(image.isLocalFile() && !QImage(image.toLocalFile()).isNull(), qPrintable(image.toString() + QStringLiteral(" does not load")));
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
                        queue.append(target.adjusted(QUrl::RemoveFragment));
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
        for (const QFileInfo &file : QDir(HelpFolder).entryInfoList({QStringLiteral("*.html")}, QDir::Files)) {
            QVERIFY2(pages.contains(file.canonicalFilePath()), qPrintable(file.fileName() + QStringLiteral(" is linked from nowhere")));
        }
        QDirIterator pictures(HelpFolder, {QStringLiteral("*.png")}, QDir::Files, QDirIterator::Subdirectories);
        int pictureCount = 0;
        for (; pictures.hasNext(); ++pictureCount) {
            const QString picture = QFileInfo(pictures.next()).canonicalFilePath();
            QVERIFY2(images.contains(picture), qPrintable(picture + QStringLiteral(" is shown nowhere")));
        }
        QVERIFY(pages.size() > 1 && pictureCount > 0);
    }

    // A page followed inside the help, then the sheet closed and opened again: the help page shows, from its top, with no way back.
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
        const QUrl followed = view->source().adjusted(QUrl::RemoveFragment);
        QVERIFY2(followed.isLocalFile() && followed != sheet.helpPageUrl(), qPrintable(followed.toString()));
        QVERIFY(view->isBackwardAvailable());
        sheet.hideHelpSheet();
        QVERIFY(!sheet.isVisible());
        sheet.viewHelp();
        QCOMPARE(view->source(), sheet.helpPageUrl());
        QCOMPARE(view->verticalScrollBar()->value(), 0);
        QVERIFY(!view->isBackwardAvailable());
        sheet.hideHelpSheet();
        // Missing, the help says where it was looked for.
        OVHelpSheet missing(QStringLiteral("/nonexistent/help.html"));
        missing.loadHelpPage();
        QVERIFY(missing.helpWebView()->toPlainText().contains(QStringLiteral("/nonexistent/help.html")));
    }

    // The credits scroll only while their tab shows; leaving it, or closing the sheet, stops them and puts the text back at its top.
    void creditsScrollOnlyOnTheirTab()
    {
        Credits c;
        QScrollBar *bar = c.view->verticalScrollBar();
        c.tabView.setCurrentIndex(1);
        QVERIFY(!c.credits.scrollTimer());
        c.tabView.setCurrentIndex(2);
        QTRY_VERIFY_WITH_TIMEOUT(bar->value() > 0, 2000);
        c.tabView.setCurrentIndex(0);
        QVERIFY(!c.credits.scrollTimer());
        QCOMPARE(bar->value(), 0);
        c.tabView.setCurrentIndex(2);
        QTRY_VERIFY_WITH_TIMEOUT(bar->value() > 0, 2000);
        c.credits.stopScrolling(); // the options sheet closed
        QVERIFY(!c.credits.scrollTimer());
        QCOMPARE(bar->value(), 0);
        // Missing, they say where they were looked for.
        OVCredits missing(c.view, &c.tabView, c.dir.filePath(QStringLiteral("none.html")));
        missing.loadCredits();
        QVERIFY(c.view->toPlainText().contains(c.dir.filePath(QStringLiteral("none.html"))));
    }
};

QTEST_MAIN(TestHelp)
#include "test_help.moc"
