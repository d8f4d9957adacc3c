#pragma once

#include <cstddef>
#include <deque>
#include <map>

#include "Apart/MessageCheck.h"

namespace quillmark {

/// The messages of this run, so that they can be checked again and looked into. Beyond a number of bytes the
/// oldest are let go, first those whose file can be read again; what checks were told stays.
class KeptMessages {
public:
    static constexpr std::size_t usualLimit = 256'000'000;  ///< bytes
    explicit KeptMessages(std::size_t limit = usualLimit) : m_limit(limit) {}

    void keep(const UUID& id, CheckedMessage message);
    /// Perhaps without bytes. Null when there is none. Valid until the next change.
    const CheckedMessage* find(const UUID& id) const;
    void drop(const UUID& id);

private:
    void release(CheckedMessage& message);
    bool releaseFirst(std::deque<UUID>& ids);

    std::size_t m_limit, m_held = 0;
    std::map<UUID, CheckedMessage> m_kept = {};
    // Whose bytes are held, the oldest first, and some that are gone.
    std::deque<UUID> m_withFile = {}, m_withoutFile = {};
};

}  // namespace quillmark
