// SPDX-FileCopyrightText: 2026 Orvane developers
// SPDX-License-Identifier: GPL-2.0-or-later

#include "OVTemporaryFile.h"

#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

bool OVTemporaryFile::write(const QString &path, const QByteArray &contents)
{
    const QByteArray name = QFile::encodeName(path);
    if (::unlink(name.constData()) != 0 && errno != ENOENT) {
        return false;
    }
    const int fd = ::open(name.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) {
        return false;
    }
    qint64 done = 0;
    while (done < contents.size()) {
        const ssize_t n = ::write(fd, contents.constData() + done, static_cast<size_t>(contents.size() - done));
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            ::close(fd);
            return false;
        }
        done += n;
    }
    return ::close(fd) == 0;
}

void OVTemporaryFile::remove(const QString &path)
{
    ::unlink(QFile::encodeName(path).constData());
}
