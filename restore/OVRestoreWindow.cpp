// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVRestoreWindow.h"

#include "ui_restorewindow.h"
#include <QDir>

#include "OVLocalizedStrings.h"
#include "OVRemoteServer.h"
#include "OVRestoreJob.h"
#include "OVSettings.h"
#include "OVSettingsDomain.h"

#include <KMessageWidget>

#include <QAction>
#include <QCloseEvent>
#include <QFileDialog>
#include <QHelpEvent>
#include <QLocale>
#include <QMetaMethod>
#include <QScreen>
#include <QStandardItemModel>
#include <QStyledItemDelegate>
#include <QThread>
#include <QToolTip>

Q_DECLARE_METATYPE(OVVersion)

namespace
{
enum Roles {
    RelativePathRole = Qt::UserRole,
    VersionRole,
    FilledRole,
};

QString quoted(const QString &key, const QString &argument)
{
    return OVLocalized(key.toLatin1().constData()).arg(argument);
}

QString shortDate(const QDateTime &time)
{
    return QLocale().toString(time, QLocale::ShortFormat);
}

// A cell whose text does not fit shows it whole as its tool tip.
class ElidedTipDelegate : public QStyledItemDelegate
{
public:
    using QStyledItemDelegate::QStyledItemDelegate;
    bool helpEvent(QHelpEvent *event, QAbstractItemView *view, const QStyleOptionViewItem &option, const QModelIndex &index) override
    {
        if (event->type() == QEvent::ToolTip && !index.data(Qt::ToolTipRole).isValid()) {
            const QString text = index.data(Qt::DisplayRole).toString();
            if (!text.isEmpty() && sizeHint(option, index).width() > view->visualRect(index).width()) {
                QToolTip::showText(event->globalPos(), text, view);
                return true;
            }
            QToolTip::hideText();
            event->ignore();
            return false;
        }
        return QStyledItemDelegate::helpEvent(event, view, option, index);
    }
};
}

OVRestoreWindow::OVRestoreWindow(QWidget *parent)
    : QWidget(parent, Qt::Window)
    , m_ui(new Ui::OVRestoreWindow)
    , m_model(new QStandardItemModel(this))
{
    m_ui->setupUi(this);
    m_ui->progressBar->hide();
    m_ui->messageWidget->hide();
    m_ui->asOfDateEdit->setDate(QDate::currentDate());
    m_ui->asOfDateEdit->setMaximumDate(QDate::currentDate());
    m_model->setHorizontalHeaderLabels(
        {OVLocalized("RestoreNameHeader"), OVLocalized("RestoreStateHeader"), OVLocalized("RestoreSizeHeader"), OVLocalized("RestoreDateHeader")});
    m_ui->treeView->setModel(m_model);
    m_ui->treeView->setItemDelegate(new ElidedTipDelegate(m_ui->treeView));
    m_ui->versionList->setItemDelegate(new ElidedTipDelegate(m_ui->versionList));
    m_ui->splitter->setStretchFactor(0, 1);
    m_ui->splitter->setStretchFactor(1, 0);

    m_connectAction = new QAction(OVLocalized("RestoreConnect"), this);
    connect(m_connectAction, &QAction::triggered, this, [this]() {
        for (const OVRestoreProblem &problem : qAsConst(m_sources.problems)) {
            if (problem.kind == OVRestoreProblem::RemoteNotMounted) {
                Q_EMIT connectRequested(problem.server, problem.volume);
                return;
            }
        }
    });

    connect(m_ui->treeView, &QTreeView::expanded, this, [this](const QModelIndex &index) {
        QStandardItem *item = m_model->itemFromIndex(index.siblingAtColumn(0));
        if (item && !item->data(FilledRole).toBool()) {
            fillFolder(item);
        }
        fitColumns();
    });
    connect(m_ui->treeView->selectionModel(), &QItemSelectionModel::selectionChanged, this, &OVRestoreWindow::selectionChanged);
    connect(m_ui->asOfCheck, &QCheckBox::toggled, this, [this](bool on) {
        m_ui->asOfDateEdit->setEnabled(on);
        reload();
    });
    connect(m_ui->asOfDateEdit, &QDateEdit::dateChanged, this, [this]() {
        if (m_ui->asOfCheck->isChecked()) {
            reload();
        }
    });
    connect(m_ui->restoreButton, &QPushButton::clicked, this, &OVRestoreWindow::restore);
    connect(m_ui->restoreToButton, &QPushButton::clicked, this, &OVRestoreWindow::restoreTo);
    connect(m_ui->cancelButton, &QPushButton::clicked, this, [this]() {
        if (m_job) {
            m_job->cancel();
        }
    });
    connect(m_ui->closeButton, &QPushButton::clicked, this, &QWidget::close);
}

OVRestoreWindow::~OVRestoreWindow()
{
    if (m_job) {
        m_job->cancel();
    }
    if (m_thread) {
        m_thread->wait();
    }
}

void OVRestoreWindow::setSetup(const OVRestoreSources::Setup &setup)
{
    m_setup = setup;
    m_setupGiven = true;
}

void OVRestoreWindow::openAt(const QString &path)
{
    m_path = QDir::cleanPath(QDir::current().absoluteFilePath(path));
    m_ui->treeView->selectionModel()->clearSelection();
    reload();
}

QDateTime OVRestoreWindow::asOf() const
{
    return m_ui->asOfCheck->isChecked() ? QDateTime(m_ui->asOfDateEdit->date(), QTime(23, 59, 59)) : QDateTime();
}

void OVRestoreWindow::setAsOf(const QDate &date)
{
    m_ui->asOfDateEdit->setDate(date);
    m_ui->asOfCheck->setChecked(date.isValid());
}

void OVRestoreWindow::reload()
{
    if (!m_setupGiven) {
        m_setup = OVRestoreSources::installed();
    }
    // Keep what was selected: a reload must not lose the user's place.
    const QStringList selected = selectedPaths();
    m_sources = OVRestoreSources::forPath(m_path, m_setup);
    m_model->removeRows(0, m_model->rowCount());
    m_ui->versionList->clear();

    const bool known = !m_sources.sourceRoot.isEmpty();
    const QString title = known ? QFileInfo(m_sources.sourceRoot).fileName() : QFileInfo(m_path).fileName();
    setWindowTitle(quoted(QStringLiteral("RestoreWindowTitle"), title.isEmpty() ? m_path : title));
    m_ui->sourceLabel->setText(quoted(QStringLiteral("RestoreBackupsOf"), known ? m_sources.sourceRoot : m_path));
    m_ui->treeView->setEnabled(known);
    m_ui->restoreButton->setEnabled(known);
    m_ui->restoreToButton->setEnabled(known);
    if (known) {
        auto *root = new QStandardItem(QIcon::fromTheme(QStringLiteral("folder")), m_sources.sourceRoot);
        root->setData(QStringLiteral(""), RelativePathRole);
        const QVector<OVVersion> versions = m_sources.index.versionsOf(QString());
        if (!versions.isEmpty()) {
            root->setData(QVariant::fromValue(versions.first()), VersionRole);
        }
        m_model->appendRow({root, new QStandardItem(), new QStandardItem(), new QStandardItem()});
        fillFolder(root);
        m_ui->treeView->expand(root->index());
        QStringList wanted = selected;
        if (wanted.isEmpty() && !m_sources.relativePath.isNull()) {
            wanted.append(m_sources.relativePath);
        }
        for (const QString &relative : qAsConst(wanted)) {
            if (QStandardItem *item = itemFor(relative)) {
                m_ui->treeView->selectionModel()->select(item->index(), QItemSelectionModel::Select | QItemSelectionModel::Rows);
                m_ui->treeView->setCurrentIndex(item->index());
                // A folder opens showing what it holds.
                if (wanted.size() == 1 && item->hasChildren()) {
                    m_ui->treeView->expand(item->index());
                }
                m_ui->treeView->scrollTo(item->index(), QAbstractItemView::PositionAtTop);
            }
        }
    }
    // The versions of what is selected, and every problem, shown once.
    selectionChanged();
    fitColumns();
}

void OVRestoreWindow::fitColumns()
{
    for (int column = 0; column < m_model->columnCount(); ++column) {
        m_ui->treeView->resizeColumnToContents(column);
    }
    for (int column = 0; column < m_ui->versionList->columnCount(); ++column) {
        m_ui->versionList->resizeColumnToContents(column);
    }
}

QSize OVRestoreWindow::contentSize() const
{
    // Every column whole, with the frames and the scroll bar; the tree's
    // open rows above the versions.
    const int scrollBar = style()->pixelMetric(QStyle::PM_ScrollBarExtent);
    const auto columnsWidth = [scrollBar](const QTreeView *view) {
        // QTreeView hides its column size hint; the item view's is the same.
        const QAbstractItemView *items = view;
        int width = 2 * view->frameWidth() + scrollBar;
        for (int column = 0; column < view->header()->count(); ++column) {
            width += qMax(items->sizeHintForColumn(column), view->header()->sectionSizeHint(column));
        }
        return width;
    };
    int rows = 0;
    for (QModelIndex index = m_model->index(0, 0); index.isValid() && rows < 200; index = m_ui->treeView->indexBelow(index)) {
        ++rows;
    }
    const int rowHeight = qMax(m_ui->treeView->sizeHintForRow(0), fontMetrics().height() + 4);
    const QMargins margins = layout()->contentsMargins();
    const int width = qMax(columnsWidth(m_ui->treeView), columnsWidth(m_ui->versionList)) + margins.left() + margins.right();
    const int chrome = sizeHint().height() - m_ui->splitter->sizeHint().height();
    const int tree = m_ui->treeView->header()->sizeHint().height() + (rows + 1) * rowHeight + 2 * m_ui->treeView->frameWidth() + scrollBar;
    const int versions = versionListHeight();
    return {width, chrome + tree + m_ui->splitter->handleWidth() + versions};
}

int OVRestoreWindow::versionListHeight() const
{
    // Room for a few versions, and for every one a file has up to eight.
    const int rows = qBound(4, m_ui->versionList->topLevelItemCount(), 8);
    const int rowHeight = qMax(m_ui->versionList->sizeHintForRow(0), fontMetrics().height() + 4);
    return m_ui->versionList->header()->sizeHint().height() + rows * rowHeight + 2 * m_ui->versionList->frameWidth()
        + style()->pixelMetric(QStyle::PM_ScrollBarExtent);
}

void OVRestoreWindow::fitToContent()
{
    const QScreen *screen = this->screen();
    const QRect available = screen ? screen->availableGeometry() : QRect(0, 0, 1280, 800);
    const QSize wanted = contentSize().expandedTo(QSize(640, 420));
    resize(qMin(wanted.width(), available.width() * 9 / 10), qMin(wanted.height(), available.height() * 9 / 10));
    // The versions get what their rows need, the tree the rest.
    const int versions = versionListHeight();
    m_ui->splitter->setSizes({qMax(m_ui->splitter->height() - versions, m_ui->splitter->height() / 2), versions});
}

void OVRestoreWindow::showEvent(QShowEvent *event)
{
    if (!m_fitted) {
        m_fitted = true;
        fitToContent();
    }
    QWidget::showEvent(event);
}

void OVRestoreWindow::fillFolder(QStandardItem *folder)
{
    folder->removeRows(0, folder->rowCount());
    folder->setData(true, FilledRole);
    const QString relative = folder->data(RelativePathRole).toString();
    const QDateTime date = asOf();
    const QVector<OVEntry> entries = m_sources.index.listFolder(relative, date);
    const QIcon folderIcon = QIcon::fromTheme(QStringLiteral("folder"));
    const QIcon fileIcon = QIcon::fromTheme(QStringLiteral("text-x-generic"));
    const QColor dim = palette().color(QPalette::Disabled, QPalette::Text);
    QList<QList<QStandardItem *>> rows;
    rows.reserve(entries.size());
    for (const OVEntry &entry : entries) {
        auto *name = new QStandardItem(entry.isDir ? folderIcon : fileIcon, entry.name);
        name->setData(relative.isEmpty() ? entry.name : relative + QLatin1Char('/') + entry.name, RelativePathRole);
        QString state;
        if (entry.excluded) {
            state = OVLocalized("RestoreStateExcluded");
        } else if (!entry.inSource && entry.hasVersion) {
            state = OVLocalized(date.isValid() ? "RestoreStateDeletedSince" : "RestoreStateDeleted");
        } else if (!entry.hasVersion) {
            state = OVLocalized("RestoreStateNotBackedUp");
        } else if (!date.isValid()) {
            state = OVLocalized("RestoreStateBackedUp");
        }
        auto *stateItem = new QStandardItem(state);
        auto *size = new QStandardItem;
        auto *when = new QStandardItem;
        if (entry.hasVersion) {
            name->setData(QVariant::fromValue(entry.version), VersionRole);
            if (!entry.version.isDir) {
                size->setText(QLocale().formattedDataSize(entry.version.size));
            }
            when->setText(shortTitle(entry.version));
            when->setToolTip(versionTitle(entry.version));
        }
        if (!entry.inSource) {
            // Deleted from the source: only the backup still has it.
            QFont font = name->font();
            font.setItalic(true);
            name->setFont(font);
            stateItem->setFont(font);
        }
        if (!entry.hasVersion || entry.excluded) {
            name->setForeground(dim);
            stateItem->setForeground(dim);
        }
        if (entry.isDir) {
            name->appendRow(new QStandardItem);
        }
        rows.append({name, stateItem, size, when});
    }
    for (const auto &row : qAsConst(rows)) {
        folder->appendRow(row);
    }
}

QStandardItem *OVRestoreWindow::itemFor(const QString &relativePath)
{
    QStandardItem *item = m_model->item(0);
    if (!item || relativePath.isEmpty()) {
        return item;
    }
    const QStringList parts = relativePath.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    for (const QString &part : parts) {
        if (!item->data(FilledRole).toBool()) {
            fillFolder(item);
        }
        m_ui->treeView->expand(item->index());
        QStandardItem *next = nullptr;
        for (int row = 0; row < item->rowCount() && !next; ++row) {
            if (item->child(row)->text() == part) {
                next = item->child(row);
            }
        }
        if (!next) {
            return item;
        }
        item = next;
    }
    return item;
}

QStringList OVRestoreWindow::selectedPaths() const
{
    QStringList paths;
    const QModelIndexList rows = m_ui->treeView->selectionModel()->selectedRows(0);
    for (const QModelIndex &index : rows) {
        paths.append(index.data(RelativePathRole).toString());
    }
    return paths;
}

int OVRestoreWindow::versionCount() const
{
    return m_ui->versionList->topLevelItemCount();
}

QString OVRestoreWindow::message() const
{
    return m_ui->messageWidget->isVisible() || !m_ui->messageWidget->isHidden() ? m_ui->messageWidget->text() : QString();
}

QString OVRestoreWindow::versionTitle(const OVVersion &version) const
{
    const OVSnapshot &snapshot = m_sources.index.snapshot(version.snapshot);
    if (snapshot.kind == OVSnapshot::Archive) {
        return quoted(m_sources.index.wasDeletedBy(version) ? QStringLiteral("RestoreArchiveDeleted") : QStringLiteral("RestoreArchiveVersion"),
                      shortDate(snapshot.time));
    }
    if (!snapshot.time.isValid()) {
        return quoted(QStringLiteral("RestoreCopyNoRunYet"), snapshot.frequency);
    }
    return quoted(QStringLiteral("RestoreCopyVersion"), QLocale().toString(snapshot.time.date(), QLocale::ShortFormat));
}

QString OVRestoreWindow::shortTitle(const OVVersion &version) const
{
    const OVSnapshot &snapshot = m_sources.index.snapshot(version.snapshot);
    if (snapshot.kind == OVSnapshot::Archive) {
        return quoted(QStringLiteral("RestoreShortArchive"), shortDate(snapshot.time));
    }
    return snapshot.time.isValid() ? QLocale().toString(snapshot.time.date(), QLocale::ShortFormat) : OVLocalized("RestoreShortCopyEarlier");
}

void OVRestoreWindow::selectionChanged()
{
    m_ui->versionList->clear();
    const QStringList paths = selectedPaths();
    QString extra;
    if (paths.size() == 1) {
        const QVector<OVVersion> versions = m_sources.index.versionsOf(paths.first());
        for (const OVVersion &version : versions) {
            const OVSnapshot &snapshot = m_sources.index.snapshot(version.snapshot);
            auto *row = new QTreeWidgetItem(m_ui->versionList);
            row->setText(0, versionTitle(version));
            row->setTextAlignment(1, Qt::AlignRight | Qt::AlignVCenter);
            row->setText(1, version.isDir ? QString() : QLocale().formattedDataSize(version.size));
            row->setText(2, shortDate(version.modified));
            row->setText(3,
                         snapshot.kind == OVSnapshot::Copy ? OVLocalized("RestoreKeptInCopy").arg(snapshot.frequency, snapshot.destination)
                                                           : quoted(QStringLiteral("RestoreKeptInArchive"), snapshot.frequency));
            row->setData(0, Qt::UserRole, QVariant::fromValue(version));
        }
        const QString name = paths.first().isEmpty() ? m_sources.sourceRoot : paths.first();
        const QModelIndexList rows = m_ui->treeView->selectionModel()->selectedRows(0);
        if (versions.isEmpty() && m_sources.index.isExcluded(paths.first(), QFileInfo(m_path).isDir())) {
            extra = quoted(QStringLiteral("RestoreExcluded"), name);
        } else if (versions.isEmpty()) {
            extra = quoted(QStringLiteral("RestoreNeverBackedUp"), name);
        } else if (asOf().isValid() && !rows.isEmpty() && !rows.first().data(VersionRole).isValid()) {
            extra = quoted(QStringLiteral("RestoreNotBackedUpThen"), name);
        }
    }
    showProblems(extra);
}

void OVRestoreWindow::showProblems(const QString &extra)
{
    QStringList lines = m_sources.describeProblems();
    const bool remote = std::any_of(m_sources.problems.cbegin(), m_sources.problems.cend(), [](const OVRestoreProblem &problem) {
        return problem.kind == OVRestoreProblem::RemoteNotMounted;
    });
    if (!extra.isEmpty()) {
        lines.append(extra);
    }
    m_ui->messageWidget->removeAction(m_connectAction);
    if (remote && isSignalConnected(QMetaMethod::fromSignal(&OVRestoreWindow::connectRequested))) {
        m_ui->messageWidget->addAction(m_connectAction);
    }
    if (lines.isEmpty()) {
        m_ui->messageWidget->hide();
        return;
    }
    const bool nothing = m_sources.index.snapshots().isEmpty();
    m_ui->messageWidget->setMessageType(nothing ? KMessageWidget::Error : KMessageWidget::Warning);
    m_ui->messageWidget->setText(lines.join(QLatin1Char('\n')));
    m_ui->messageWidget->show();
}

QVector<OVVersion> OVRestoreWindow::chosenVersions() const
{
    QVector<OVVersion> versions;
    const QList<QTreeWidgetItem *> picked = m_ui->versionList->selectedItems();
    if (!picked.isEmpty()) {
        for (QTreeWidgetItem *row : picked) {
            versions.append(row->data(0, Qt::UserRole).value<OVVersion>());
        }
        return versions;
    }
    // What the tree shows for each selected path, as the command line
    // chooses it: the newest version, or the one of the date.
    return OVRestoreJob::choose(m_sources.index, selectedPaths(), asOf());
}

void OVRestoreWindow::restore()
{
    startRestore(QString());
}

void OVRestoreWindow::restoreTo()
{
    if (chosenVersions().isEmpty()) {
        showProblems(OVLocalized("RestoreNothingChosen"));
        return;
    }
    const QString folder = QFileDialog::getExistingDirectory(this, OVLocalized("RestoreChooseFolder"), QDir::homePath());
    if (!folder.isEmpty()) {
        startRestore(folder);
    }
}

void OVRestoreWindow::startRestore(const QString &otherFolder)
{
    const QVector<OVVersion> chosen = chosenVersions();
    if (chosen.isEmpty() || m_job) {
        showProblems(OVLocalized("RestoreNothingChosen"));
        return;
    }
    const auto conflict = m_ui->replaceCheck->isChecked() ? OVRestoreJob::Replace : OVRestoreJob::KeepBoth;
    m_job = new OVRestoreJob(m_sources.index, OVRestoreJob::plan(m_sources.index, chosen, otherFolder), conflict);
    connect(m_job, &OVRestoreJob::progress, this, [this](qint64 done, qint64 total, const QString &current) {
        m_ui->progressBar->setMaximum(1000);
        m_ui->progressBar->setValue(total > 0 ? int(done * 1000 / total) : 1000);
        m_ui->progressLabel->setText(current.isEmpty() ? QString() : quoted(QStringLiteral("RestoreWorking"), current));
    });
    m_ui->progressBar->setValue(0);
    m_ui->progressBar->show();
    m_ui->restoreButton->setEnabled(false);
    m_ui->restoreToButton->setEnabled(false);
    m_ui->cancelButton->setEnabled(true);
    OVRestoreJob *job = m_job;
    m_thread = QThread::create([job]() {
        job->run();
    });
    connect(m_thread, &QThread::finished, this, &OVRestoreWindow::restoreEnded);
    m_thread->start();
}

void OVRestoreWindow::restoreEnded()
{
    m_thread->deleteLater();
    m_thread = nullptr;
    OVRestoreJob *job = m_job;
    m_job = nullptr;
    m_ui->progressBar->hide();
    m_ui->progressLabel->clear();
    m_ui->cancelButton->setEnabled(false);
    const bool ok = job->errors().isEmpty() && !job->wasCancelled();
    const QStringList lines = job->summary();
    delete job;
    reload();
    m_ui->messageWidget->setMessageType(ok ? KMessageWidget::Positive : KMessageWidget::Error);
    m_ui->messageWidget->setText(lines.join(QLatin1Char('\n')));
    m_ui->messageWidget->show();
    Q_EMIT restoreFinished(ok);
}

void OVRestoreWindow::closeEvent(QCloseEvent *event)
{
    // Closing stops a restore between two whole files.
    if (m_job) {
        m_job->cancel();
        m_thread->wait();
    }
    QWidget::closeEvent(event);
}

void OVRestoreWindow::offerConnect()
{
    auto *connection = new OVRemoteConnection(this);
    connect(this, &OVRestoreWindow::connectRequested, connection, [connection](const QString &server, const QString &volume) {
        connection->connectToServer({server, OVSettings::stored().remoteUserName(), volume});
    });
    connect(connection, &OVRemoteConnection::finished, this, [this](bool ok, const QString &, const QString &message) {
        if (ok) {
            reload();
        } else {
            showProblems(message);
        }
    });
}

OVRestoreWindow *OVRestoreWindow::showAt(OVRestoreWindow *window, const QString &path)
{
    if (!window) {
        window = new OVRestoreWindow;
        window->setAttribute(Qt::WA_DeleteOnClose);
        window->offerConnect();
    }
    window->openAt(path.isEmpty() ? QDir::homePath() : path);
    window->show();
    window->raise();
    window->activateWindow();
    return window;
}
