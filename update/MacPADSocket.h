// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <QVariantMap>

class QIODevice;
class QNetworkAccessManager;
class QNetworkReply;

// The MacPAD version-check client: fetches the vendor's version dictionary
// (a property list), compares its "productVersion" with the running version
// and reports through one of two notifications, always on the main thread
// and always after the call that started the check has returned. The names
// of the class, the notifications and the user-information keys belong to
// the MacPAD protocol.
class MacPADSocket : public QObject
{
    Q_OBJECT
public:
    enum Code {
        NoNewVersion = 0,
        BadInput = 1,
        InvalidRemoteFile = 2,
        VersionMissing = 4,
        NewVersionAvailable = 5,
    };

    // A check that has not ended by then ends in code 2: a server that
    // accepts the connection and never answers must not hold it forever.
    static constexpr int TransferTimeoutMs = 10000;
    static constexpr int CheckTimeoutMs = 30000;
    // A version dictionary is a few hundred bytes; anything far larger is not one.
    static constexpr qint64 MaximumFileSize = 1 << 20;

    explicit MacPADSocket(QObject *parent = nullptr);
    ~MacPADSocket() override;

    // The delegate is called through whichever of macPADErrorOccurred and
    // macPADCheckFinished it has as slots, each taking
    // (MacPADSocket *, const QVariantMap &). Not owned.
    void setDelegate(QObject *delegate);
    QObject *delegate() const;

    // Starts a check and returns at once. A null URL or version is code 1;
    // only https addresses are fetched (anything else is code 2).
    void performCheck(const QUrl &url, const QString &withVersion);
    // The version is the bundle's "CFBundleVersion".
    void performCheckWithURL(const QUrl &url);
    // The URL is read from the bundle's resource "MacPAD.url".
    void performCheckWithVersion(const QString &version);
    void performCheck();

    QString newVersion() const;
    QString releaseNotes() const;
    QString productPageURL() const;
    // The first download address, or "".
    QString productDownloadURL() const;
    QStringList productDownloadURLs() const;

    // The version rules. compareVersion returns -1 when a is the newer, 1
    // when toVersion is the newer and 0 when they are equal.
    static int compareVersion(const QString &a, const QString &toVersion);
    static QStringList splitVersion(const QString &version);
    // 0 number, 1 text, 2 separator.
    static int getCharType(const QString &part);

Q_SIGNALS:
    // Codes 1, 2 and 4.
    void MacPADErrorOccurredNotification(MacPADSocket *object, const QVariantMap &userInfo);
    // Codes 0 and 5.
    void MacPADCheckFinishedNotification(MacPADSocket *object, const QVariantMap &userInfo);

private:
    void initiateCheck();
    void replyFinished(QNetworkReply *reply);
    void processDictionary(const QVariant &dictionary);
    void returnError(int code, const QString &message);
    void returnSuccess(const QVariantMap &userInfo);
    void returnFailure(const QVariantMap &userInfo);

    // Declared for a streaming transfer; no operation uses them.
    QIODevice *m_fileHandle = nullptr;
    QUrl m_fileURL;
    QString m_currentVersion;
    QString m_newVersion;
    QString m_releaseNotes;
    QString m_productPageURL;
    QString m_buffer;
    QStringList m_productDownloadURLs;
    qint32 m_contentLength = 0;
    bool m_headersReceived = false;
    bool m_statusReceived = false;
    QPointer<QObject> m_delegate;

    QNetworkAccessManager *m_network = nullptr;
    QList<QMetaObject::Connection> m_delegateConnections;
};
