// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#include "OVLockView.h"

#include "OVAlert.h"
#include "OVBundle.h"
#include "OVLocalizedStrings.h"
#include "OVSaveJob.h"

#include <QAbstractButton>
#include <QLabel>

OVLockView::OVLockView(OVLock *lock, QLabel *label, QAbstractButton *button, QWidget *pane)
    : QObject(pane)
    , m_lock(lock)
    , m_label(label)
    , m_button(button)
    , m_pane(pane)
{
    connect(m_lock, &OVLock::authorizationFinished, this, &OVLockView::finished);
    connect(m_lock, &OVLock::authorizationUnavailable, this, &OVLockView::showUnavailable);
}

void OVLockView::showLook(bool unlocked)
{
    m_label->setText(OVLocalized(unlocked ? "PreventChanges" : "MakeChanges"));
    m_button->setIcon(QIcon(QPixmap(OVBundle::pathForResource(QLatin1String(unlocked ? "unlock" : "lock"), QStringLiteral("tiff")))));
    m_button->setChecked(!unlocked);
}

void OVLockView::requestOpen()
{
    // The click toggled the button; it shows the closed lock until polkit says yes.
    m_button->setChecked(true);
    m_lock->requestAuthorization();
}

void OVLockView::close()
{
    showLook(false);
    // A save under way was authorized, and its helpers ask polkit about this
    // process again: what polkit kept goes once they are done.
    OVSaveJob::whenIdle(m_lock, [lock = m_lock] {
        lock->removePrivilege();
    });
}

void OVLockView::finished(bool granted)
{
    if (!granted) {
        m_button->setChecked(true);
        return;
    }
    showLook(true);
    Q_EMIT opened();
}

void OVLockView::showUnavailable(OVLock::Failure failure, const QString &details)
{
    const bool noAgent = failure == OVLock::Failure::NoAgent;
    QMessageBox *alert = OVAlert::show(m_pane,
                                       QMessageBox::Warning,
                                       "LockUnavailable",
                                       noAgent ? "NoPolkitAgentExplanation" : "NoPolkitExplanation",
                                       QStringLiteral("lockUnavailableAlert"));
    alert->setInformativeText(details);
}
