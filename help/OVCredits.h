// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QObject>
#include <QPointer>
#include <memory>

class QTabWidget;
class QTextEdit;
class QTimer;

// The credits on the options' About tab: loaded when the options open, they
// scroll up one point every 0.05 s while their tab is shown, loop back to the
// top, and start again from the top whenever the tab is shown anew.
class OVCredits : public QObject
{
    Q_OBJECT
public:
    // creditsPath is the credits' HTML ("Credits.html" among the bundle's
    // resources). The tab of tabView that holds creditsTextView is the
    // credits tab; the object follows tabView's tab changes by itself.
    OVCredits(QTextEdit *creditsTextView, QTabWidget *tabView, const QString &creditsPath, QObject *parent = nullptr);
    ~OVCredits() override;

    static constexpr int ScrollInterval = 50; // ms
    static constexpr int Inset = 15; // points

    // Fills the view from the credits file, black on white, at its start.
    void loadCredits();
    // The options sheet closed: no more scrolling, back at the top.
    void stopScrolling();

    QTimer *scrollTimer() const
    {
        return m_scrollTimer.get();
    }
    float currentPosition() const
    {
        return m_currentPosition;
    }

public Q_SLOTS:
    // One step: shows the text from currentPosition down, then moves the
    // position on by one point, or back to 0 once it reaches the number of
    // characters less 150 (a shorter text never loops).
    void scrollCredits();

private:
    void tabChanged(int index);
    void startScrolling();

    QPointer<QTextEdit> m_creditsTextView;
    QPointer<QTabWidget> m_tabView;
    QString m_creditsPath;
    std::unique_ptr<QTimer> m_scrollTimer;
    float m_currentPosition = 0.0f;
};
