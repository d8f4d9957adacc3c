#include "Quillmark/SingleInstance.h"

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
/// What the first copy says, once it listens and once it has the paths.
constexpr char ready = 'r', taken = 't';

bool hears(QLocalSocket& socket, char word, int milliseconds) {
    char heard = 0;
    return (socket.bytesAvailable() > 0 || socket.waitForReadyRead(milliseconds)) &&
           socket.read(&heard, 1) == 1 && heard == word;
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
    // The first copy may have taken the lock and not yet listen, and it may end before it has listened.
    while (!end.hasExpired() && m_lock.error() == QLockFile::LockFailedError && !isFirst()) {
        QLocalSocket socket;
        socket.connectToServer(m_socket);
        // Nothing is said to one that does not listen: it must not open the files later, when this copy has.
        if (socket.waitForConnected(left()) && hears(socket, ready, left())) {
            socket.write(bytes);
            return hears(socket, taken, left());
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
            socket->write(&taken, 1);
            socket->flush();  // what follows may take a while
            emit received(paths);
        };
        connect(socket, &QLocalSocket::readyRead, this, read);
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        socket->write(&ready, 1);
        if (socket->bytesAvailable() > 0) read();
    }
}

}  // namespace quillmark
