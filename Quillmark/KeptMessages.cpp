#include "Quillmark/KeptMessages.h"

#include <utility>

namespace quillmark {

void KeptMessages::keep(const UUID& id, CheckedMessage message) {
    drop(id);
    m_held += message.source.bytes->size();
    (message.source.place.path.empty() ? m_withoutFile : m_withFile).push_back(id);
    m_kept.emplace(id, std::move(message));
    while (m_held > m_limit && (releaseFirst(m_withFile) || releaseFirst(m_withoutFile))) continue;
}

const CheckedMessage* KeptMessages::find(const UUID& id) const {
    const auto found = m_kept.find(id);
    return found != m_kept.end() ? &found->second : nullptr;
}

void KeptMessages::drop(const UUID& id) {
    const auto found = m_kept.find(id);
    if (found == m_kept.end()) return;
    release(found->second);
    m_kept.erase(found);
}

void KeptMessages::release(CheckedMessage& message) {
    if (message.source.bytes) m_held -= message.source.bytes->size();
    message.source.bytes = nullptr;
}

bool KeptMessages::releaseFirst(std::deque<UUID>& ids) {
    if (ids.empty()) return false;
    const auto found = m_kept.find(ids.front());
    ids.pop_front();
    if (found != m_kept.end()) release(found->second);
    return true;
}

}  // namespace quillmark
