// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later
#include "MacPADSocket.h"

#include "OVBundle.h"
#include "OVPropertyList.h"

#include <QFile>
#include <QFileInfo>
#include <QMetaMethod>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTextCodec>
#include <QTimer>

#include <limits>

namespace
{
const char ErrorCodeKey[] = "MacPADErrorCode";
const char ErrorMessageKey[] = "MacPADErrorMessage";
const char NewVersionAvailableKey[] = "MacPADNewVersionAvailable";

enum CharType { Number = 0, Text = 1, Separator = 2 };

// The integer a text starts with, as C's strtoll reads it: white space, an
// optional sign, digits; the first other character ends it. Saturates.
qint64 integerValue(const QString &text)
{
    int i = 0;
    while (i < text.size() && text.at(i).isSpace()) {
        ++i;
    }
    bool negative = false;
    if (i < text.size() && (text.at(i) == QLatin1Char('+') || text.at(i) == QLatin1Char('-'))) {
        negative = text.at(i) == QLatin1Char('-');
        ++i;
    }
    qint64 value = 0;
    for (; i < text.size() && text.at(i) >= QLatin1Char('0') && text.at(i) <= QLatin1Char('9'); ++i) {
        const int digit = text.at(i).unicode() - '0';
        if (value > (std::numeric_limits<qint64>::max() - digit) / 10) {
            return negative ? std::numeric_limits<qint64>::min() : std::numeric_limits<qint64>::max();
        }
        value = value * 10 + digit;
    }
    return negative ? -value : value;
}

QString message(int code)
{
    switch (code) {
    case MacPADSocket::NoNewVersion:
        return QStringLiteral("No new version available");
    case MacPADSocket::InvalidRemoteFile:
        return QStringLiteral("Remote file or URL was invalid");
    case MacPADSocket::VersionMissing:
        return QStringLiteral("Product version information missing");
    case MacPADSocket::NewVersionAvailable:
        return QStringLiteral("New version available");
    }
    return QString();
}
}

MacPADSocket::MacPADSocket(QObject *parent)
    : QObject(parent)
{
}

MacPADSocket::~MacPADSocket() = default;

void MacPADSocket::setDelegate(QObject *delegate)
{
    for (const QMetaObject::Connection &connection : qAsConst(m_delegateConnections)) {
        disconnect(connection);
    }
    m_delegateConnections.clear();
    m_delegate = delegate;
    if (!delegate) {
        return;
    }
    // Only the operations the delegate has are observed.
    const QMetaObject *mine = metaObject();
    const QMetaObject *theirs = delegate->metaObject();
    const std::pair<const char *, const char *> observed[] = {
        {"MacPADErrorOccurredNotification(MacPADSocket*,QVariantMap)", "macPADErrorOccurred(MacPADSocket*,QVariantMap)"},
        {"MacPADCheckFinishedNotification(MacPADSocket*,QVariantMap)", "macPADCheckFinished(MacPADSocket*,QVariantMap)"},
    };
    for (const auto &[signal, slot] : observed) {
        const int slotIndex = theirs->indexOfMethod(slot);
        if (slotIndex >= 0) {
            m_delegateConnections.append(connect(this, mine->method(mine->indexOfSignal(signal)), delegate, theirs->method(slotIndex)));
        }
    }
}

QObject *MacPADSocket::delegate() const
{
    return m_delegate;
}

void MacPADSocket::performCheck(const QUrl &url, const QString &withVersion)
{
    if (url.isEmpty() || !url.isValid() || withVersion.isNull()) {
        returnError(BadInput, QStringLiteral("URL or version was nil"));
        return;
    }
    m_fileURL = url;
    m_currentVersion = withVersion;
    initiateCheck();
}

void MacPADSocket::performCheckWithURL(const QUrl &url)
{
    performCheck(url, OVBundle::infoDictionary().value(QStringLiteral("CFBundleVersion")).toString());
}

void MacPADSocket::performCheckWithVersion(const QString &version)
{
    const QString path = OVBundle::pathForResource(QStringLiteral("MacPAD"), QStringLiteral("url"));
    if (!QFileInfo::exists(path)) {
        returnError(BadInput, QStringLiteral("MacPAD.url file was not found"));
        return;
    }
    QFile file(path);
    QByteArray data;
    if (file.open(QIODevice::ReadOnly)) {
        data = file.read(MaximumFileSize + 1);
    }
    QTextCodec::ConverterState state;
    const QString text = QTextCodec::codecForName("UTF-8")->toUnicode(data.constData(), data.size(), &state);
    if (!file.isOpen() || file.error() != QFileDevice::NoError || data.size() > MaximumFileSize || state.invalidChars > 0) {
        returnError(BadInput, QStringLiteral("The MacPAD.url file can't be opened"));
        return;
    }
    const int marker = text.indexOf(QLatin1String("URL="));
    const QString address = (marker >= 0 ? text.mid(marker + 4) : text).trimmed();
    // Text that makes no URL is passed on as none.
    const QUrl url(address, QUrl::StrictMode);
    performCheck(url.isValid() ? url : QUrl(), version);
}

void MacPADSocket::performCheck()
{
    performCheckWithVersion(OVBundle::infoDictionary().value(QStringLiteral("CFBundleVersion")).toString());
}

QString MacPADSocket::newVersion() const
{
    return m_newVersion.isNull() ? QStringLiteral("") : m_newVersion;
}

QString MacPADSocket::releaseNotes() const
{
    return m_releaseNotes.isNull() ? QStringLiteral("") : m_releaseNotes;
}

QString MacPADSocket::productPageURL() const
{
    return m_productPageURL.isNull() ? QStringLiteral("") : m_productPageURL;
}

QString MacPADSocket::productDownloadURL() const
{
    return m_productDownloadURLs.isEmpty() ? QStringLiteral("") : m_productDownloadURLs.first();
}

QStringList MacPADSocket::productDownloadURLs() const
{
    return m_productDownloadURLs;
}

void MacPADSocket::initiateCheck()
{
    // An update notice is what an attacker on the network would forge:
    // nothing but an authenticated server is asked.
    if (m_fileURL.scheme() != QLatin1String("https")) {
        processDictionary(QVariant());
        return;
    }
    if (!m_network) {
        m_network = new QNetworkAccessManager(this);
    }
    QNetworkRequest request(m_fileURL);
    request.setTransferTimeout(TransferTimeoutMs);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    QNetworkReply *reply = m_network->get(request);

    connect(reply, &QNetworkReply::readyRead, reply, [reply] {
        if (reply->bytesAvailable() > MaximumFileSize) {
            reply->abort();
        }
    });
    auto *deadline = new QTimer(reply);
    deadline->setSingleShot(true);
    connect(deadline, &QTimer::timeout, reply, &QNetworkReply::abort);
    deadline->start(CheckTimeoutMs);
    connect(reply, &QNetworkReply::finished, this, [this, reply] {
        replyFinished(reply);
    });
}

void MacPADSocket::replyFinished(QNetworkReply *reply)
{
    reply->deleteLater();
    if (reply->error() != QNetworkReply::NoError) {
        processDictionary(QVariant());
        return;
    }
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    const QByteArray data = reply->read(MaximumFileSize + 1);
    if (status != 200 || data.size() > MaximumFileSize) {
        processDictionary(QVariant());
        return;
    }
    processDictionary(OVPropertyList::fromData(data));
}

void MacPADSocket::processDictionary(const QVariant &dictionary)
{
    if (dictionary.userType() != QMetaType::QVariantMap) {
        returnError(InvalidRemoteFile, message(InvalidRemoteFile));
        return;
    }
    const QVariantMap map = dictionary.toMap();
    auto string = [&map](const char *key) {
        const QVariant value = map.value(QLatin1String(key));
        return value.userType() == QMetaType::QString ? value.toString() : QString();
    };
    m_newVersion = string("productVersion");
    if (m_newVersion.isNull()) {
        returnError(VersionMissing, message(VersionMissing));
        return;
    }
    m_releaseNotes = string("productReleaseNotes");
    m_productPageURL = string("productPageURL");
    m_productDownloadURLs.clear();
    const QVariant downloads = map.value(QStringLiteral("productDownloadURL"));
    if (downloads.userType() == QMetaType::QVariantList) {
        const QVariantList list = downloads.toList();
        for (const QVariant &entry : list) {
            if (entry.userType() == QMetaType::QString) {
                m_productDownloadURLs.append(entry.toString());
            }
        }
    }
    const int code = compareVersion(m_newVersion, m_currentVersion) == -1 ? NewVersionAvailable : NoNewVersion;
    returnError(code, message(code));
}

void MacPADSocket::returnError(int code, const QString &message)
{
    const QVariantMap userInfo{
        {QLatin1String(ErrorCodeKey), code},
        {QLatin1String(ErrorMessageKey), message},
        {QLatin1String(NewVersionAvailableKey), code == NewVersionAvailable},
    };
    // Never from inside the call that started the check: the caller always
    // hears back later, from the event loop.
    QMetaObject::invokeMethod(
        this,
        [this, code, userInfo] {
            if (code == NoNewVersion || code == NewVersionAvailable) {
                returnSuccess(userInfo);
            } else {
                returnFailure(userInfo);
            }
        },
        Qt::QueuedConnection);
}

void MacPADSocket::returnSuccess(const QVariantMap &userInfo)
{
    Q_EMIT MacPADCheckFinishedNotification(this, userInfo);
}

void MacPADSocket::returnFailure(const QVariantMap &userInfo)
{
    Q_EMIT MacPADErrorOccurredNotification(this, userInfo);
}

int MacPADSocket::getCharType(const QString &part)
{
    if (part == QLatin1String(".")) {
        return Separator;
    }
    if (part == QLatin1String("0") || integerValue(part) != 0) {
        return Number;
    }
    return Text;
}

QStringList MacPADSocket::splitVersion(const QString &version)
{
    QStringList parts;
    if (version.isEmpty()) {
        return parts;
    }
    QString run = version.left(1);
    int previous = getCharType(run);
    for (int i = 1; i < version.size(); ++i) {
        const QString character = version.mid(i, 1);
        const int type = getCharType(character);
        if (type != previous || previous == Separator) {
            parts.append(run);
            run = character;
        } else {
            run += character;
        }
        previous = type;
    }
    parts.append(run);
    return parts;
}

int MacPADSocket::compareVersion(const QString &a, const QString &toVersion)
{
    const QStringList partsA = splitVersion(a);
    const QStringList partsB = splitVersion(toVersion);
    const int shared = std::min(partsA.size(), partsB.size());
    for (int i = 0; i < shared; ++i) {
        const QString &partA = partsA.at(i);
        const QString &partB = partsB.at(i);
        const int typeA = getCharType(partA);
        const int typeB = getCharType(partB);
        if (typeA != typeB) {
            // Text ranks lowest, then separator, then number.
            if (typeA == Text) {
                return 1;
            }
            if (typeB == Text) {
                return -1;
            }
            return typeA == Number ? -1 : 1;
        }
        if (typeA == Number) {
            const qint64 valueA = integerValue(partA);
            const qint64 valueB = integerValue(partB);
            if (valueA != valueB) {
                return valueA > valueB ? -1 : 1;
            }
        } else if (typeA == Text) {
            // The protocol's own rule, kept as it is: the text that sorts
            // first counts as the newer (1.0a is newer than 1.0b).
            const int order = QString::compare(partA, partB, Qt::CaseSensitive);
            if (order != 0) {
                return order < 0 ? -1 : 1;
            }
        }
    }
    if (partsA.size() == partsB.size()) {
        return 0;
    }
    // An extra text part marks a pre-release (1.0b1 is older than 1.0); an
    // extra number or separator a later release (1.0.1 is newer than 1.0).
    const bool aIsLonger = partsA.size() > partsB.size();
    const QString &extra = aIsLonger ? partsA.at(shared) : partsB.at(shared);
    const bool longerIsNewer = getCharType(extra) != Text;
    return aIsLonger == longerIsNewer ? -1 : 1;
}
