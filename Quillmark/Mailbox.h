#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>
#include <functional>
#include <mutex>
#include <vector>

namespace quillmark {

/// Takes pieces of work from any thread and does them on the thread that made it, whose event loop must run,
/// in the order they came. Many that come at once are done together, so that what follows from them (a list
/// that is drawn again) happens once.
class Mailbox : public QObject {
    Q_OBJECT
public:
    using Piece = std::function<void()>;

    explicit Mailbox(QObject* parent = nullptr);

    /// From any thread, as long as the mailbox lives.
    void post(Piece piece);
    /// Does at once what has come.
    void empty();

signals:
    void posted(QPrivateSignal);  ///< to itself, from another thread
    void emptied();               ///< pieces have been done

private:
    void emptySoon();
    void emptySome();
    void perform(const std::vector<Piece>& pieces);

    std::mutex m_mutex = {};
    std::vector<Piece> m_pieces = {};
    QElapsedTimer m_sinceLast = {};
    QTimer m_next{this};
};

}  // namespace quillmark
