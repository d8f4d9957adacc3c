#pragma once

#include <QLocalServer>
#include <QLockFile>
#include <QObject>
#include <QStringList>
#include <chrono>

namespace quillmark {

/// Sees to it that one user has one running copy: a second start hands its files to the first and ends,
/// unless the first doesn't take them.
class SingleInstance : public QObject {
    Q_OBJECT
public:
    /// `folder` belongs to the user alone; by it the copies find each other.
    explicit SingleInstance(const QString& folder, QObject* parent = nullptr);

    /// Whether this copy is the first; from then on it listens.
    bool isFirst();
    /// Hands absolute paths, perhaps none, to the first copy, which comes to the front. False when it has not
    /// taken them in time, and never will, or when it ended meanwhile and this copy is the first.
    bool handOver(const QStringList& paths, std::chrono::milliseconds time = std::chrono::seconds(5));
    /// Takes nothing any more, when the program is about to quit.
    void end() { m_server.close(); }

signals:
    void received(const QStringList& paths);

private:
    void accept();

    QLockFile m_lock;
    QString m_socket;
    QLocalServer m_server;
};

}  // namespace quillmark
