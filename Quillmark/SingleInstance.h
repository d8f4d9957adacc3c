#pragma once

#include <QLocalServer>
#include <QLockFile>
#include <QObject>
#include <QStringList>

namespace quillmark {

/// Sees to it that one user has one running copy: a second start hands its files to the first and ends.
class SingleInstance : public QObject {
    Q_OBJECT
public:
    /// `folder` belongs to the user alone; by it the copies find each other.
    explicit SingleInstance(const QString& folder, QObject* parent = nullptr);

    /// Whether this copy is the first; from then on it listens.
    bool isFirst();
    /// Hands absolute paths, perhaps none, to the first copy, which comes to the front. False when it does
    /// not answer within some seconds.
    bool handOver(const QStringList& paths) const;

signals:
    void received(const QStringList& paths);

private:
    void accept();

    QLockFile m_lock;
    QString m_socket;
    QLocalServer m_server;
};

}  // namespace quillmark
