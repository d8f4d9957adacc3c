#include "Quillmark/SingleInstance.h"

#include <QDir>
#include <QElapsedTimer>
#include <QLocalSocket>
#include <QThread>
#include <memory>

namespace quillmark {

namespace {

constexpr int answerMilliseconds = 5'000, retryMilliseconds = 50;
/// Longer than the arguments of a process can be.
constexpr qsizetype mostBytes = qsizetype{16} * 1024 * 1024;

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

bool SingleInstance::handOver(const QStringList& paths) const {
    QByteArray bytes;
    for (const QString& path : paths) bytes += path.toUtf8() + '\0';
    bytes += '\0';  // the end, so that a copy killed in the middle hands over nothing
    QElapsedTimer waited;
    waited.start();
    // The first copy may have taken the lock and not yet listen.
    while (waited.elapsed() < answerMilliseconds) {
        QLocalSocket socket;
        socket.connectToServer(m_socket);
        if (socket.waitForConnected(answerMilliseconds)) {
            socket.write(bytes);
            if (!socket.waitForBytesWritten(answerMilliseconds)) return false;
            socket.disconnectFromServer();
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
            emit received(paths);
        };
        connect(socket, &QLocalSocket::readyRead, this, read);
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        if (socket->bytesAvailable() > 0) read();
    }
}

}  // namespace quillmark
