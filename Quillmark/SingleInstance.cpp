#include "Quillmark/SingleInstance.h"

#include <sys/socket.h>

#include <QDeadlineTimer>
#include <QDir>
#include <QLocalSocket>
#include <QThread>
#include <memory>

namespace quillmark {

namespace {

constexpr int retryMilliseconds = 50;
/// Longer than the arguments of a process can be.
constexpr qsizetype mostBytes = qsizetype{16} * 1024 * 1024;
/// What the first copy says when it takes the paths.
constexpr char taken = 't';

/// Takes the paths, unless the other copy has taken them back: from one `shutdown` on, nothing can be sent to
/// it, and what was sent before is there to be read. So exactly one of the two opens them, whoever was
/// stopped or busy meanwhile, and for how long.
bool isTakenBy(int descriptor) { return ::send(descriptor, &taken, 1, MSG_NOSIGNAL) == 1; }
bool isTakenBack(int descriptor) {
    ::shutdown(descriptor, SHUT_RD);
    char heard = 0;
    return ::recv(descriptor, &heard, 1, MSG_DONTWAIT) != 1;
}

}  // namespace

SingleInstance::SingleInstance(const QString& folder, QObject* parent)
    : QObject(parent),
      m_lock(QDir(folder).filePath(QStringLiteral("quillmark-desktop.lock"))),
      m_socket(QDir(folder).filePath(QStringLiteral("quillmark-desktop.socket"))) {
    // A lock is stale when its process is gone, however long it was held.
    m_lock.setStaleLockTime(0);
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    connect(&m_server, &QLocalServer::newConnection, this, &SingleInstance::accept);
}

bool SingleInstance::isFirst() {
    if (!m_lock.tryLock(0)) return false;
    QLocalServer::removeServer(m_socket);  // left by a copy that was killed
    m_server.listen(m_socket);
    return true;
}

bool SingleInstance::handOver(const QStringList& paths, std::chrono::milliseconds time) {
    QByteArray bytes;
    for (const QString& path : paths) bytes += path.toUtf8() + '\0';
    bytes += '\0';  // the end, so that a copy killed in the middle hands over nothing
    const QDeadlineTimer end(time);
    const auto left = [&] { return static_cast<int>(end.remainingTime()); };
    // The first copy may have taken the lock and not yet listen, and it may end before it has taken the
    // paths.
    while (!end.hasExpired() && m_lock.error() == QLockFile::LockFailedError && !isFirst()) {
        QLocalSocket socket;
        socket.connectToServer(m_socket);
        if (socket.waitForConnected(left())) {
            socket.write(bytes);
            if (socket.waitForReadyRead(left()) || !isTakenBack(static_cast<int>(socket.socketDescriptor())))
                return true;
        }
        QThread::msleep(retryMilliseconds);
    }
    return false;
}

void SingleInstance::accept() {
    while (QLocalSocket* socket = m_server.nextPendingConnection()) {
        auto bytes = std::make_shared<QByteArray>();
        const auto read = [this, socket, bytes] {
            *bytes += socket->readAll();
            if (bytes->size() > mostBytes) return socket->abort();
            if (*bytes != QByteArray(1, '\0') && !bytes->endsWith(QByteArray(2, '\0'))) return;
            QStringList paths;
            for (const QByteArray& path : bytes->split('\0')) {
                if (!path.isEmpty()) paths << QString::fromUtf8(path);
            }
            bytes->clear();
            if (isTakenBy(static_cast<int>(socket->socketDescriptor()))) emit received(paths);
        };
        connect(socket, &QLocalSocket::readyRead, this, read);
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        if (socket->bytesAvailable() > 0) read();
    }
}

}  // namespace quillmark
