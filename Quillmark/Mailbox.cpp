#include "Quillmark/Mailbox.h"

#include <utility>

namespace quillmark {

namespace {

constexpr qint64 togetherWithin = 30;  // milliseconds: nobody sees that it's late

}  // namespace

Mailbox::Mailbox(QObject* parent) : QObject(parent) {
    m_next.setSingleShot(true);
    connect(&m_next, &QTimer::timeout, this, &Mailbox::empty);
    connect(this, &Mailbox::posted, this, &Mailbox::emptySoon, Qt::QueuedConnection);
}

void Mailbox::post(Piece piece) {
    {
        const std::lock_guard lock(m_mutex);
        m_pieces.push_back(std::move(piece));
        if (m_pieces.size() > 1) return;  // the first one has said so
    }
    emit posted(QPrivateSignal());
}

void Mailbox::emptySoon() {
    const qint64 wait = m_sinceLast.isValid() ? togetherWithin - m_sinceLast.elapsed() : 0;
    if (wait <= 0) {
        empty();
    } else if (!m_next.isActive()) {
        m_next.start(static_cast<int>(wait));
    }
}

void Mailbox::empty() {
    std::vector<Piece> pieces;
    {
        const std::lock_guard lock(m_mutex);
        pieces.swap(m_pieces);
    }
    if (pieces.empty()) return;
    for (const Piece& piece : pieces) piece();
    m_sinceLast.start();
    emit emptied();
}

}  // namespace quillmark
