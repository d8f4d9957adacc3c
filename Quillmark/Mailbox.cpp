#include "Quillmark/Mailbox.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace quillmark {

namespace {

constexpr std::size_t mostTogether = 250;  // pieces: the window has its turn in between
constexpr qint64 togetherWithin = 30;      // milliseconds: nobody sees that it's late

}  // namespace

Mailbox::Mailbox(QObject* parent) : QObject(parent) {
    m_next.setSingleShot(true);
    connect(&m_next, &QTimer::timeout, this, &Mailbox::emptySome);
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
        emptySome();
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
    perform(pieces);
}

void Mailbox::emptySome() {
    std::vector<Piece> pieces;
    {
        const std::lock_guard lock(m_mutex);
        const auto end =
            m_pieces.begin() + static_cast<std::ptrdiff_t>(std::min(m_pieces.size(), mostTogether));
        pieces.assign(std::make_move_iterator(m_pieces.begin()), std::make_move_iterator(end));
        m_pieces.erase(m_pieces.begin(), end);
        if (!m_pieces.empty()) m_next.start(1);
    }
    perform(pieces);
}

void Mailbox::perform(const std::vector<Piece>& pieces) {
    if (pieces.empty()) return;
    for (const Piece& piece : pieces) piece();
    m_sinceLast.start();
    emit emptied();
}

}  // namespace quillmark
